// KESTA_SANITIZED: built with a sanitizer. It ends the process where an allocation would fail, and
// takes the address space for itself.
#ifndef KESTA_API_SANITIZED_H
#define KESTA_API_SANITIZED_H

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KESTA_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KESTA_SANITIZED 1
#endif
#endif
#ifndef KESTA_SANITIZED
#define KESTA_SANITIZED 0
#endif

#endif
