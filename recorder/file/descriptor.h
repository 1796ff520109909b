// A file descriptor that is closed at the end.
#ifndef KESTA_RECORDER_DESCRIPTOR_H
#define KESTA_RECORDER_DESCRIPTOR_H

#include <unistd.h>

namespace kesta {
namespace recorder {

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number() const { return number_; }

private:
    int number_;
};

}  // namespace recorder
}  // namespace kesta

#endif
