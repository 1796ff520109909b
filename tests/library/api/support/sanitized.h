// Builds with a sanitizer, for the few tests that cannot be run there.
#ifndef KESTA_API_SANITIZED_H
#define KESTA_API_SANITIZED_H

#if defined(__SANITIZE_ADDRESS__)
#define KESTA_ADDRESS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTA_ADDRESS_SANITIZED 1
#endif
#endif
#ifndef KESTA_ADDRESS_SANITIZED
#define KESTA_ADDRESS_SANITIZED 0
#endif

#if defined(__SANITIZE_THREAD__)
#define KESTA_THREAD_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KESTA_THREAD_SANITIZED 1
#endif
#endif
#ifndef KESTA_THREAD_SANITIZED
#define KESTA_THREAD_SANITIZED 0
#endif

#define KESTA_SANITIZED (KESTA_ADDRESS_SANITIZED || KESTA_THREAD_SANITIZED)

#endif
