#include "sequence.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "install_directory.h"
#include "kesta_unified_zrkukey.h"
#include "lgn_exception.h"
#include "log_file.h"

extern "C" bool g_initFlag;
extern std::map<unsigned, std::string> slot_map asm("g_WaitEventSlotMap");

namespace {

int sleeps = 0;

}  // namespace

// A wait sleeps between its polls; here that takes no time.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* interval,
                                                                timespec*) {
    if (interval->tv_sec == 0 && interval->tv_nsec == 20000000) ++sleeps;
    return 0;
}

namespace calls {

using recording::TheRecorder;

LogReader::~LogReader() {
    if (file_ >= 0) close(file_);
}

std::string LogReader::gained() {
    if (file_ < 0) file_ = open(log_path, O_RDONLY | O_CLOEXEC);
    std::string text;
    char block[4096];
    ssize_t got = 0;
    while (file_ >= 0 && (got = pread(file_, block, sizeof block, read_)) > 0) {
        text.append(block, static_cast<std::size_t>(got));
        read_ += got;
    }
    return text;
}

void LogReader::keep_small() {
    if (read_ < 8 << 20) return;
    ForgetLog();
    close(file_);
    file_ = -1;
    read_ = 0;
}

namespace {

// Follows a text along; false where it goes on differently.
class Text {
public:
    explicit Text(const std::string& text) : text_(text) {}
    bool at_end() const { return at_ == text_.size(); }
    bool has(const std::string& next) {
        if (text_.compare(at_, next.size(), next) != 0) return false;
        at_ += next.size();
        return true;
    }
    // So many digits.
    bool digits(int least, int most) {
        int count = 0;
        for (; count < most && at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9';
             ++at_) {
            ++count;
        }
        return count >= least;
    }
    std::string rest() const { return text_.substr(at_, 200); }

private:
    const std::string& text_;
    std::size_t at_ = 0;
};

bool has_record(Text& text, const Record& record) {
    const auto thread = static_cast<std::int32_t>(static_cast<std::uint32_t>(pthread_self()));
    return text.has("[") && text.digits(2, 2) && text.has(",") && text.digits(2, 2) &&
           text.has(":") && text.digits(2, 2) && text.has(":") && text.digits(2, 2) &&
           text.has(".") && text.digits(3, record.hexadecimal ? 6 : 3) &&
           text.has("] " + record.tag + ": (Process is " + std::to_string(getpid()) +
                    ", thread is " + std::to_string(thread) + ")\r\n\t[" + record.body + "]\r\n");
}

template <class Value>
void same(const char* what, const Value& seen, const Value& expected) {
    if (seen == expected) return;
    throw Disagreement(std::string(what) + " is " + std::to_string(seen) + ", not " +
                       std::to_string(expected));
}

void compare_buffer(const std::string& written) {
    static const std::string untouched = [] {
        std::string bytes;
        for (std::size_t i = 0; i < buffer_size; ++i) bytes += untouched_byte(i);
        return bytes;
    }();
    const bool same_bytes =
        std::memcmp(client_buffer, written.data(), written.size()) == 0 &&
        std::memcmp(client_buffer + written.size(), untouched.data() + written.size(),
                    buffer_size - written.size()) == 0;
    if (!same_bytes) {
        std::size_t at = 0;
        while (client_buffer[at] == (at < written.size() ? written[at] : untouched[at])) ++at;
        throw Disagreement("the buffer differs at byte " + std::to_string(at) + "; " +
                           std::to_string(written.size()) + " bytes were to be written");
    }
    std::memcpy(client_buffer, untouched.data(), written.size());
}

}  // namespace

Sequence::Sequence(std::uint64_t seed) : seed_(seed) {
    ForgetLog();
    install::PutCompleteLibrary();
    for (std::size_t i = 0; i < buffer_size; ++i) client_buffer[i] = untouched_byte(i);
}

// An import drops what was kept, a binding that fails leaves nothing bound.
Sequence::Sequence() : Sequence(0) {
    TheRecorder().AnswerWith(nullptr);
    TheRecorder().Hide("");
    Initialize();
    ImportX509Cert("", "");
    StopDetectUKey();
    slot_map.clear();
    TheRecorder().Hide(token_entries().front());
    Initialize();
    Finalize();
    TheRecorder().Forget();
    ForgetLog();
}

void Sequence::prepare(Draw& draw, Obstacle& obstacle) {
    // A client may write to the variable, and what it wrote is what stands there.
    if (draw.once_in(8)) {
        G_LastError = state_.last_error = draw.once_in(2) ? 0 : static_cast<int>(draw.next());
    }
    if (library_is_gone_ && draw.once_in(10)) {
        install::PutCompleteLibrary();
        library_is_gone_ = false;
    }
    if (draw.once_in(4)) obstacle.missing_entry = draw.of(token_entries());
    TheRecorder().Hide(obstacle.missing_entry);
}

namespace {

// Requests more often than others: what is kept between two calls shows in the second alone.
const Row& any_row(Draw& draw) {
    static const std::vector<Row> requests = [] {
        std::vector<Row> found;
        for (const Row& row : rows()) {
            if (std::string(row.name).find("CertRequest") != std::string::npos)
                found.push_back(row);
        }
        return found;
    }();
    return draw.of(draw.once_in(6) ? requests : rows());
}

}  // namespace

void Sequence::call(std::uint64_t index) {
    Draw draw(seed_, index * 2), lies(seed_, index * 2 + 1);
    call(draw, lies);
}

void Sequence::call(Draw& draw, Draw& lies) {
    Obstacle obstacle;
    Seen seen;
    prepare(draw, obstacle);
    const Row* row = &any_row(draw);
    if (draw.once_in(3000)) {
        // Where the library has gone the table leads nowhere until somebody binds again.
        install::RemoveTokenLibrary();
        install::CloseEntirely();
        library_is_gone_ = true;
        row = &rows().front();
    }
    obstacle.library_is_gone = library_is_gone_;
    client_length = client_kind = 77;
    Arguments arguments(draw, state_);
    const Prepared prepared = row->prepare(arguments);
    seen.capacity = client_length;
    shown_ = std::string(row->name) + "(" + arguments.shown() + ")";
    int polls = 0;
    TheRecorder().AnswerWith([&](const recording::Call& made) {
        Asked& asked = seen.asked.emplace_back();
        asked.call = made;
        asked.last_error = G_LastError;
        recording::Answer answer = any_answer(lies, asked, polls++);
        if (asked.stops || asked.throws) {
            answer.Does([stops = asked.stops, throws = asked.throws](const recording::Call&) {
                if (stops) StopDetectUKey();
                if (throws) throw 1;
            });
        }
        return answer;
    });
    sleeps = 0;
    int result = 0;
    const std::uint32_t thrown = CodeThrownBy([&] { result = prepared.call(); });
    seen.sleeps = sleeps;

    Model model(state_, obstacle, seen);
    int expected = 0;
    std::uint32_t expected_throw = 0;
    try {
        expected = prepared.expected(model);
        model.finish();
    } catch (const Thrown&) {
        expected_throw = invalid_argument;
    }
    same("what is thrown", thrown, expected_throw);
    if (thrown == 0) same("the result", result, expected);
    compare(model);
    compare_log(model);
    TheRecorder().Forget();
}

void Sequence::compare(const Model& model) const {
    same("G_LastError", G_LastError, state_.last_error);
    same("g_initFlag", g_initFlag, state_.initialised);
    same("the length", client_length, model.length);
    same("the kind of event", client_kind, model.event_kind.value_or(77));
    same("the number of request texts alive", TheRecorder().LiveRequests(), 0);
    compare_buffer(model.written);
    if (slot_map != state_.slots) throw Disagreement("the slot map differs");
    if (TheRecorder().Lookups() != model.lookups) {
        throw Disagreement(std::to_string(TheRecorder().Lookups().size()) + " look-ups, not " +
                           std::to_string(model.lookups.size()) + ", or in another order");
    }
}

void Sequence::compare_log(const Model& model) {
    const std::string gained = log_.gained();
    Text text(gained);
    for (const Record& record : model.records) {
        if (!has_record(text, record)) {
            throw Disagreement("the log goes on with: " + text.rest() + "\nnot with a record of " +
                               record.tag + ": " + record.body);
        }
    }
    if (!text.at_end()) throw Disagreement("the log has more: " + text.rest());
    log_.keep_small();
}

}  // namespace calls
