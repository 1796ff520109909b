// One sequence of calls in this process: the library, the token that lies, and the model beside
// them.
#ifndef KESTA_CALLS_SEQUENCE_H
#define KESTA_CALLS_SEQUENCE_H

#include <string>

#include "exports.h"

namespace calls {

// Reads what the log has gained.
class LogReader {
public:
    ~LogReader();
    std::string gained();
    // Begins a new file where the old one has become large.
    void keep_small();

private:
    int file_ = -1;
    long read_ = 0;
};

class Sequence {
public:
    explicit Sequence(std::uint64_t seed);
    // One whose calls are drawn elsewhere, with the library as it was loaded, whatever was called
    // before.
    Sequence();
    // Makes call number index. Each depends on its number and on the state that those before it
    // left, so that any of them can be left out. Throws Disagreement.
    void call(std::uint64_t index);
    // Makes one call; lies decides what the token answers. Throws Disagreement.
    void call(Draw& draw, Draw& lies);
    // The latest call as it was made.
    const std::string& shown() const { return shown_; }

private:
    void prepare(Draw& draw, Obstacle& obstacle);
    void compare(const Model& model) const;
    void compare_log(const Model& model);

    std::uint64_t seed_;
    State state_;
    LogReader log_;
    bool library_is_gone_ = false;
    std::string shown_;
};

}  // namespace calls

#endif
