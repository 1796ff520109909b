// How often a test with random values goes round.
#ifndef KESTA_ROUNDS_H
#define KESTA_ROUNDS_H

// A sanitizer makes a round ten times as dear.
constexpr int Rounds(int usual) {
#ifdef KESTA_SANITIZED
    return usual / 10;
#else
    return usual;
#endif
}

#endif
