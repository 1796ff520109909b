// How often a test with random values goes round.
#ifndef KESTA_ROUNDS_H
#define KESTA_ROUNDS_H

// A sanitizer or an emulator makes a round ten times as dear.
constexpr int Rounds(int usual) {
#if defined(KESTA_SANITIZED) || defined(KESTA_EMULATED)
    return usual / 10;
#else
    return usual;
#endif
}

#endif
