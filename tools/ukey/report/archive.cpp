#include "report/archive.h"

#include <fcntl.h>
#include <minizip/zip.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "names.h"

namespace ukey {
namespace {

constexpr uLong kMadeOnUnix = 3U << 8U;
constexpr uLong kPlainFileOfOwner = 0100600U << 16U;

[[noreturn]] void Fail() {
    throw FileError(_("the archive cannot be made"), errno);
}

// A file without a name, in memory.
class Scratch {
public:
    Scratch() : file_(::memfd_create("report", MFD_CLOEXEC)) {
        if (file_ < 0) Fail();
    }
    ~Scratch() { ::close(file_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    // Instead of opening a file by its name.
    static voidpf Open(voidpf self, const void*, int) {
        const int copy = ::fcntl(static_cast<Scratch*>(self)->file_, F_DUPFD_CLOEXEC, 0);
        return copy < 0 ? nullptr : ::fdopen(copy, "w+b");
    }

    std::string Content() const {
        const off_t size = ::lseek(file_, 0, SEEK_END);
        std::string content(static_cast<std::size_t>(size < 0 ? 0 : size), '\0');
        if (::pread(file_, content.data(), content.size(), 0) != size) Fail();
        return content;
    }

private:
    const int file_;
};

bool Add(zipFile archive, const std::string& name, const std::string& bytes, std::time_t time) {
    std::tm parts{};
    ::localtime_r(&time, &parts);
    zip_fileinfo facts{};
    const auto part = [](int value) { return static_cast<unsigned>(value); };
    facts.tmz_date = {part(parts.tm_sec),  part(parts.tm_min), part(parts.tm_hour),
                      part(parts.tm_mday), part(parts.tm_mon), part(parts.tm_year + 1900)};
    facts.external_fa = kPlainFileOfOwner;
    const int opened =
        zipOpenNewFileInZip4(archive, name.c_str(), &facts, nullptr, 0, nullptr, 0, nullptr,
                             Z_DEFLATED, Z_DEFAULT_COMPRESSION, 0, -MAX_WBITS, DEF_MEM_LEVEL,
                             Z_DEFAULT_STRATEGY, nullptr, 0, kMadeOnUnix, 0);
    return opened == ZIP_OK &&
           zipWriteInFileInZip(archive, bytes.data(), static_cast<unsigned>(bytes.size())) ==
               ZIP_OK &&
           zipCloseFileInZip(archive) == ZIP_OK;
}

}  // namespace

std::string Zip(const std::string& folder, const std::vector<Member>& members, std::time_t time) {
    Scratch scratch;
    zlib_filefunc64_def functions;
    fill_fopen64_filefunc(&functions);
    functions.zopen64_file = Scratch::Open;
    functions.opaque = &scratch;
    const zipFile archive = zipOpen2_64("", APPEND_STATUS_CREATE, nullptr, &functions);
    if (archive == nullptr) Fail();
    bool whole = true;
    for (const Member& member : members) {
        whole = whole && Add(archive, folder + "/" + member.name, member.bytes, time);
    }
    if (zipClose(archive, nullptr) != ZIP_OK || !whole) Fail();
    return scratch.Content();
}

}  // namespace ukey
