// What the recording libraries saw and what they answer. The token library and the event library
// that stand in the install directory during these tests have no behaviour of their own: each call
// of an entry point is written down here, with its arguments as bytes, and answered as the test
// said. Test program and stand-ins share this state through one shared library.
#ifndef KESTA_RECORDING_H
#define KESTA_RECORDING_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#define RECORDING_API __attribute__((visibility("default")))

namespace recording {

// One argument of one call.
struct RECORDING_API Argument {
    enum class Kind {
        Value,    // an integer: value, width
        Text,     // a text that goes in: bytes hold it without its NUL
        Memory,   // a buffer of known size: bytes hold what was in it at the call
        Length,   // the address of a 32-bit number: value holds the number
        Request,  // the address of a text pointer: value is 0 when it pointed to null
        String,   // a string object: bytes hold its text
        Pointer,  // passed on unseen: only the address is kept
    };
    Kind kind = Kind::Value;
    std::int64_t value = 0;
    int width = 0;  // bytes of an integer
    const void* address = nullptr;
    std::string bytes;

    std::string Describe() const;
};

struct RECORDING_API Call {
    std::string entry;
    std::vector<Argument> arguments;

    // Entry point and arguments in one line, such as VerifyPIN("A1").
    std::string Describe() const;
    const Argument& At(std::size_t index) const;
    const std::string& Bytes(std::size_t index) const;
};

// How a call is answered. Nothing is written that the test did not ask for.
struct RECORDING_API Answer {
    int code = 0;
    std::map<std::size_t, std::string> written;    // argument -> bytes stored there, no NUL added
    std::map<std::size_t, std::uint32_t> numbers;  // argument -> 32-bit number stored there
    bool hasRequest = false;
    std::string requestText;  // handed out as a block of new char[]
    bool hasFilled = false;
    std::string filledText;  // put into the string object through raw memory
    bool messageIsNull = false;
    std::string messageText;  // of X_ErrorConvert_UOS
    std::function<void(const Call&)> action;

    Answer& Returns(int result);
    Answer& Writes(std::size_t argument, std::string bytes);
    Answer& WritesNumber(std::size_t argument, std::uint32_t number);
    Answer& Request(std::string text);
    Answer& Fills(std::string text);
    Answer& Message(std::string text);
    Answer& NullMessage();
    // Runs after the outputs are written, without a lock: it may block or throw.
    Answer& Does(std::function<void(const Call&)> what);
};

class RECORDING_API Recorder {
public:
    // The answer to every call of an entry point, or to its nth call alone (from 1).
    Answer& On(const std::string& entry);
    Answer& On(const std::string& entry, int nth);
    // Stores the first size bytes behind a Pointer argument too.
    void Capture(const std::string& entry, std::size_t argument, std::size_t size);

    std::vector<Call> Calls() const;
    std::vector<Call> Calls(const std::string& entry) const;
    Call Only(const std::string& entry) const;  // throws unless there was exactly one
    std::vector<std::string> Trace() const;     // describe() of each call, in order
    std::vector<std::string> Names() const;     // entry points alone, in order
    std::vector<std::string> Lookups() const;   // names looked up in the token library, in order
    void Forget();                              // calls and look-ups; the answers stay
    // Runs at each look-up of an entry point, before it is written down.
    void WhenLookedUp(std::function<void()> what);
    // The look-up of this entry point finds nothing; an empty name hides none.
    void Hide(const std::string& entry);
    // Answers every call, in place of what on() says.
    void AnswerWith(std::function<Answer(const Call&)> what);

    // Runs when the process ends, behind the destructors of the library under test, which is loaded
    // after this one.
    void WhenLeaving(std::function<void()> what);

    // Request texts handed out and not yet released.
    int LiveRequests() const;

    // For the stand-ins. False: the entry point is hidden.
    bool NoteLookup(const char* name);
    void Leave();
    void Hold() { mutex_.lock(); }
    void Release() { mutex_.unlock(); }
    std::size_t Captured(const std::string& entry, std::size_t argument) const;
    Answer Record(const Call& call);
    const char* KeepMessage(const Answer& answer);
    char* NewRequest(const std::string& text);

private:
    mutable std::mutex mutex_;
    std::map<std::string, Answer> always_;
    std::map<std::pair<std::string, int>, Answer> nth_;
    std::map<std::string, int> counts_;
    std::map<std::pair<std::string, std::size_t>, std::size_t> captures_;
    std::vector<Call> calls_;
    std::vector<std::string> lookups_;
    std::function<void()> lookedUp_;
    std::function<void()> leaving_;
    std::string hidden_;
    std::function<Answer(const Call&)> answerer_;
    std::map<std::string, std::string> messages_;
};

// The one of the process.
RECORDING_API Recorder& TheRecorder();

// Told by the test program's operator delete[]: a block is about to be released.
RECORDING_API void Released(const void* block) noexcept;

// The bytes of a number or record as they stand in memory.
template <class T>
std::string BytesOf(const T& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace recording

#endif
