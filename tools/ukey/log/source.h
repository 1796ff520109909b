// Where a log is read from: a file, standard input, or a file that somebody goes on writing.
#ifndef UKEY_LOG_SOURCE_H
#define UKEY_LOG_SOURCE_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>

namespace ukey {

// What a log is called in messages.
std::string LogName(const std::string& path);

// A descriptor of a log; "-" is standard input. Not copied.
class LogFile {
public:
    LogFile() = default;
    ~LogFile() { Close(); }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    // False when it cannot be opened; errno says why.
    bool Open(const std::string& path);
    void Take(int descriptor);
    void Swap(LogFile& other) { std::swap(descriptor_, other.descriptor_); }
    void Close();
    bool isOpen() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

private:
    int descriptor_ = -1;
};

// A log as it is now. What cannot be read twice, such as a pipe, is read to its end into a file
// without a name, which nobody else can open. Throws FileError.
class LogSource {
public:
    explicit LogSource(const std::string& path);

    // A piece from there on; false at the end.
    bool ReadAt(std::uint64_t offset, std::string& piece) const;
    std::uint64_t size() const { return size_; }

private:
    void CopyAside();

    const std::string name_;
    LogFile file_;
    off_t start_ = 0;
    std::uint64_t size_ = 0;
};

// A log that grows, is cut short, or is replaced by another one of the same name.
class GrowingLog {
public:
    explicit GrowingLog(std::string path);

    // What has been added; empty when nothing has. Throws FileError, not for an absent file.
    std::string Read();
    // True when what stands under the name now is not what is being read; nothing of the latter
    // is left to be read. Read goes on with the new one.
    bool Replaced();
    // The other end of a pipe was closed.
    bool ended() const { return ended_; }
    bool present() const { return file_.isOpen(); }

private:
    void Open();

    const std::string path_;
    LogFile file_;
    bool plain_ = false;
    bool ended_ = false;
    bool changed_ = false;
    off_t offset_ = 0;
};

}  // namespace ukey

#endif
