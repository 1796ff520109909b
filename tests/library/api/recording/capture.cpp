#include "capture.h"

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace recording {

namespace {

// The operations of a string's manager, in the order in which a peer finds them.
struct ManagerTable {
    void (*destroy)(void*);
    void (*destroyAndFree)(void*);
    KestaStringHeader* (*allocate)(void*, int, int);
    void (*free)(void*, KestaStringHeader*);
    KestaStringHeader* (*reallocate)(void*, KestaStringHeader*, int, int);
    KestaStringHeader* (*nil)(void*);
    void* (*clone)(void*);
};

KestaStringHeader* HeaderOf(const KestaStringObject* object) {
    return reinterpret_cast<KestaStringHeader*>(object->characters) - 1;
}

// Replaces the text as a library compiled elsewhere would: by the layout alone.
void Fill(KestaStringObject* object, const std::string& text) {
    KestaStringHeader* const old = HeaderOf(object);
    void* const manager = old->manager;
    const ManagerTable& table = **static_cast<ManagerTable**>(manager);
    KestaStringHeader* const fresh = table.allocate(manager, static_cast<int>(text.size()), 1);
    char* const characters = reinterpret_cast<char*>(fresh + 1);
    std::memcpy(characters, text.c_str(), text.size() + 1);
    fresh->dataLength = static_cast<std::int32_t>(text.size());
    object->characters = characters;
    if (--old->references < 1) table.free(manager, old);
}

std::string StringText(const KestaStringObject* object) {
    return std::string(object->characters, static_cast<std::size_t>(HeaderOf(object)->dataLength));
}

std::size_t MemorySize(const std::string& role) {
    return static_cast<std::size_t>(std::strtoul(role.c_str() + 1, nullptr, 10));
}

void CapturePointed(Argument& argument, const std::string& role, void* address) {
    using Kind = Argument::Kind;
    argument.address = address;
    const char* const start = static_cast<const char*>(address);
    switch (role[0]) {
        case 't':
            argument.kind = Kind::Text;
            if (address) argument.bytes = start;
            break;
        case 'm':
            argument.kind = Kind::Memory;
            if (address) argument.bytes.assign(start, MemorySize(role));
            break;
        case 'l':
            argument.kind = Kind::Length;
            if (address) argument.value = *static_cast<std::uint32_t*>(address);
            break;
        case 'r':
            argument.kind = Kind::Request;
            if (address) argument.value = *static_cast<char**>(address) != nullptr;
            break;
        case 's':
            argument.kind = Kind::String;
            if (address) argument.bytes = StringText(static_cast<KestaStringObject*>(address));
            break;
        default:
            argument.kind = Kind::Pointer;
    }
}

Argument CaptureOne(const std::string& role, const Raw& raw) {
    Argument argument;
    if ((role[0] == 'v') != (raw.width != 0)) throw std::logic_error("role " + role + " is wrong");
    if (raw.width) {
        argument.value = raw.value;
        argument.width = raw.width;
    } else {
        CapturePointed(argument, role, raw.address);
    }
    return argument;
}

Call CaptureAll(const char* entry, const std::vector<std::string>& roles,
                const std::vector<Raw>& raws) {
    if (roles.size() != raws.size()) throw std::logic_error(std::string(entry) + ": roles differ");
    Call call;
    call.entry = entry;
    for (std::size_t index = 0; index < raws.size(); ++index) {
        Argument argument = CaptureOne(roles[index], raws[index]);
        const std::size_t size = TheRecorder().Captured(entry, index);
        if (size && argument.address) {
            argument.kind = Argument::Kind::Memory;
            argument.bytes.assign(static_cast<const char*>(argument.address), size);
        }
        call.arguments.push_back(std::move(argument));
    }
    return call;
}

void WriteOutputs(const Answer& answer, const std::vector<std::string>& roles,
                  const std::vector<Raw>& raws) {
    for (const auto& [index, bytes] : answer.written) {
        std::memcpy(raws.at(index).address, bytes.data(), bytes.size());
    }
    for (const auto& [index, number] : answer.numbers) {
        std::memcpy(raws.at(index).address, &number, sizeof number);
    }
    for (std::size_t index = 0; index < raws.size(); ++index) {
        if (roles[index] == "r" && answer.hasRequest) {
            *static_cast<char**>(raws[index].address) =
                TheRecorder().NewRequest(answer.requestText);
        }
        if (roles[index] == "s" && answer.hasFilled) {
            Fill(static_cast<KestaStringObject*>(raws[index].address), answer.filledText);
        }
    }
}

}  // namespace

Answer CarryOut(const char* entry, const char* roles, const std::vector<Raw>& raws) {
    std::istringstream words(roles);
    std::vector<std::string> split;
    for (std::string word; words >> word;) split.push_back(word);
    const Call call = CaptureAll(entry, split, raws);
    Answer answer = TheRecorder().Record(call);
    WriteOutputs(answer, split, raws);
    if (answer.action) answer.action(call);
    return answer;
}

}  // namespace recording
