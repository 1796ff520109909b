// A file descriptor that is closed at the end.
#ifndef KESTA_RECORDER_DESCRIPTOR_H
#define KESTA_RECORDER_DESCRIPTOR_H

#include <unistd.h>

namespace kesta {
namespace recorder {

class Descriptor {
public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor() {
        if (m_number >= 0) close(m_number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number() const { return m_number; }

private:
    int m_number;
};

}  // namespace recorder
}  // namespace kesta

#endif
