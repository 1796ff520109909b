// A folder for one test, gone when the test ends, and environment variables put back as they were.
#ifndef TESTS_SOFTKEY_DESK_TEMPORARY_FOLDER_H
#define TESTS_SOFTKEY_DESK_TEMPORARY_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string path =
            (std::filesystem::temp_directory_path() / "softkey-test-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp " + path);
        path_ = path;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(File(name), std::ios::binary) << text;
        return File(name);
    }

    std::string Read(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(File(name), std::ios::binary).rdbuf();
        return text.str();
    }

private:
    std::string path_;
};

class ScopedVariable {
public:
    // A null value unsets.
    ScopedVariable(const char* name, const char* value) : name_(name) {
        const char* const present = std::getenv(name);
        wasSet_ = present != nullptr;
        if (wasSet_) old_ = present;
        Set(value);
    }
    ~ScopedVariable() { Set(wasSet_ ? old_.c_str() : nullptr); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    void Set(const char* value) {
        if (value != nullptr) {
            setenv(name_, value, 1);
        } else {
            unsetenv(name_);
        }
    }

    const char* name_;
    std::string old_;
    bool wasSet_ = false;
};

#endif
