// Memory that ran out on the way to an answer. Streams and OpenSSL keep it to themselves: the one
// leaves out a piece of the text, the other answers as for malformed input. What was made so must
// not pass for an answer.
#ifndef KIT_MEMORY_H
#define KIT_MEMORY_H

namespace kit {

// From now on it is noticed, whoever catches what is thrown. A program that has no way out without
// memory ends with this status and a word.
void WatchMemory(const char* program, int status) noexcept;

// Whether it did since then, here or inside OpenSSL.
bool MemoryRanOut() noexcept;
// Throws std::bad_alloc when it did. Output asks before it is given and at the end.
void RequireMemory();
// In the person's words if that can still be done.
void TellThatMemoryRanOut() noexcept;

}  // namespace kit

#endif
