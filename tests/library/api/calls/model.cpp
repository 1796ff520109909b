#include "model.h"

#include <algorithm>
#include <cstdio>

namespace calls {

using recording::Argument;
using Kind = recording::Argument::Kind;

Expected text(const char* text) {
    if (text == nullptr) return {Kind::Text, true};
    return {Kind::Text, false, 0, text};
}
Expected text(const std::string& text) {
    return {Kind::Text, false, 0, text};
}
Expected value(std::int64_t number) {
    return {Kind::Value, false, number};
}
Expected memory(std::string bytes) {
    return {Kind::Memory, false, 0, std::move(bytes)};
}
Expected zeroes(std::size_t size) {
    return memory(std::string(size, '\0'));
}
Expected unread_memory() {
    return {Kind::Memory, false, 0, "", true};
}
Expected length(std::uint32_t number, const void* address) {
    return {Kind::Length, false, number, "", false, address};
}
Expected no_request() {
    return {Kind::Request, false, 0};
}
Expected empty_string() {
    return {Kind::String, false, 0, ""};
}
Expected pointer(const void* exact) {
    return {Kind::Pointer, exact == nullptr, 0, "", true, exact};
}
Expected work_buffer() {
    return {Kind::Pointer, false, 0, "", true};
}

namespace {

bool agrees(const Argument& seen, const Expected& expected) {
    if (seen.kind != expected.kind) return false;
    if (seen.kind != Kind::Value && (seen.address == nullptr) != expected.null) return false;
    if (seen.value != expected.value && !expected.null) return false;
    if (expected.address != nullptr && seen.address != expected.address) return false;
    return expected.any_bytes || seen.bytes == expected.bytes;
}

std::string shown(const char* entry, const std::vector<Expected>& arguments) {
    recording::Call call;
    call.entry = entry;
    for (const Expected& expected : arguments) {
        Argument argument;
        argument.kind = expected.kind;
        argument.value = expected.value;
        argument.bytes = expected.any_bytes ? "any" : expected.bytes;
        argument.address = expected.null ? nullptr : &argument;
        call.arguments.push_back(argument);
    }
    return call.Describe();
}

}  // namespace

const std::vector<std::string>& token_entries() {
    static const std::vector<std::string> in_order = {
        "CheckDeviceEx",        "ChangePin",        "CustInitCard",      "GMCreatePKCS10",
        "GMWritePKCS7",         "GetLabel",         "SetLabel",          "GetCertInfo",
        "GM_GetCertDN",         "UOS_SetCharset",   "UOS_SetLanguage",   "SetWarningMsg",
        "GMUsbKeyCriticalSign", "GetMediaID",       "GM_RemoveUserPin",  "GMImportPriKey",
        "GMUsbKeyCommonSign",   "GMUSBKeyAsymDec2", "GMCreatePKCS10Ex",  "X_ErrorConvert_UOS",
        "DelCertAndTempKey",    "VerifyPIN",        "VerifyAndCachePin", "GetPinInfo",
        "GetCertInfo_UOS",      "SetData",          "GetData",           "Batch_Sign",
        "SetCachePinFlag"};
    return in_order;
}

Model::Model(State& lasting, const Obstacle& obstacle, const Seen& seen)
    : state(lasting), length(seen.capacity), obstacle_(obstacle), seen_(seen) {}

int Model::initialise() {
    store(0);
    state.bound = false;
    if (obstacle_.library_is_gone) return store(-101);
    for (const std::string& entry : token_entries()) {
        lookups.push_back(entry);
        if (obstacle_.missing_entry == entry) return store(-101);
    }
    state.bound = true;
    state.initialised = true;
    return store(0);
}

void Model::initialise_on_first_use() {
    if (!state.initialised) initialise();
}

void Model::log_hexadecimal(const std::string& tag, const std::string& bytes) {
    std::string digits;
    for (const char byte : bytes) {
        char two[3];
        std::snprintf(two, sizeof two, "%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(byte)));
        digits += two;
    }
    records.push_back({tag, digits, true});
}

int Model::log_end(const std::string& tag, int code) {
    char body[40];
    std::snprintf(body, sizeof body, "End G_LastError: %08X", static_cast<unsigned>(code));
    log(tag, body);
    return code;
}

const Asked& Model::ask(const char* entry, const std::vector<Expected>& arguments) {
    if (next_ == seen_.asked.size()) {
        throw Disagreement("not asked: " + shown(entry, arguments));
    }
    const Asked& asked = seen_.asked[next_++];
    const auto& seen = asked.call.arguments;
    if (asked.call.entry != entry || seen.size() != arguments.size() ||
        !std::equal(seen.begin(), seen.end(), arguments.begin(), agrees)) {
        throw Disagreement("asked: " + asked.call.Describe() +
                           "\nto ask: " + shown(entry, arguments));
    }
    if (asked.last_error != state.last_error) {
        throw Disagreement(std::string(entry) +
                           " finds G_LastError = " + std::to_string(asked.last_error) + ", not " +
                           std::to_string(state.last_error));
    }
    return asked;
}

int Model::forward(const char* entry, const std::vector<Expected>& arguments) {
    if (!state.bound) return store(-101);
    return store(ask(entry, arguments).answer.code);
}

std::string Model::answered_text(std::size_t argument, std::size_t size) const {
    const auto& written_there = seen_.asked.at(next_ - 1).answer.written;
    const auto found = written_there.find(argument);
    if (found == written_there.end()) return "";
    return std::string(found->second.substr(0, size).c_str());
}

std::uint32_t Model::answered_length(std::size_t argument, std::uint32_t before) const {
    const auto& numbers = seen_.asked.at(next_ - 1).answer.numbers;
    const auto found = numbers.find(argument);
    return found == numbers.end() ? before : found->second;
}

void Model::answered_directly(int buffer_argument, int length_argument) {
    const auto& answer = seen_.asked.at(next_ - 1).answer;
    const auto found = answer.written.find(static_cast<std::size_t>(buffer_argument));
    if (buffer_argument >= 0 && found != answer.written.end()) write(found->second);
    length = answered_length(static_cast<std::size_t>(length_argument), length);
}

char untouched_byte(std::size_t index) {
    return index == 40 ? '\0' : 'Z';
}

void Model::write(const std::string& bytes) {
    written.replace(0, std::min(written.size(), bytes.size()), bytes);
}

std::string Model::buffer_text() const {
    std::string whole = written;
    while (whole.size() <= 40) whole += untouched_byte(whole.size());
    return whole.c_str();
}

int Model::answer_size(std::uint32_t size) {
    length = size;
    return store(0);
}

void Model::finish() const {
    if (next_ != seen_.asked.size()) {
        throw Disagreement("asked: " + seen_.asked[next_].call.Describe() +
                           "\nto ask: nothing more");
    }
    if (sleeps_ != seen_.sleeps) {
        throw Disagreement("slept " + std::to_string(seen_.sleeps) + " times, not " +
                           std::to_string(sleeps_));
    }
}

namespace {

std::string media_id(const recording::Answer& answer) {
    const auto found = answer.written.find(2);
    if (found == answer.written.end()) return "";
    return std::string(found->second.substr(248, 16).c_str());
}

std::uint32_t number_at(const std::string& bytes, std::size_t offset) {
    std::uint32_t number = 0;
    for (int byte = 3; byte >= 0; --byte) {
        number = number << 8 |
                 static_cast<unsigned char>(bytes.at(offset + static_cast<std::size_t>(byte)));
    }
    return number;
}

std::string at_line(const std::string& before, std::int32_t code, int line) {
    return before + "G_LastError = " + std::to_string(code) + ", line = " + std::to_string(line);
}

}  // namespace

void Model::scan_slots() {
    state.slots.clear();
    const Asked& listed = ask("ValtoT_GetSlotList", {value(1), zeroes(64), calls::length(10)});
    if (listed.answer.code != 0) return;
    std::string ids(64, '\0');
    const auto found = listed.answer.written.find(1);
    if (found != listed.answer.written.end()) ids.replace(0, found->second.size(), found->second);
    // The array has room for sixteen, whatever the count says.
    const std::uint32_t count = std::min(answered_length(2, 10), 16U);
    for (std::uint32_t nth = 0; nth < count; ++nth) {
        const std::uint32_t slot = number_at(ids, nth * 4);
        const Asked& read = ask("ValtoT_GetDeviceInfo", {value(slot), value(0), unread_memory()});
        if (read.answer.code == 0) state.slots[slot] = media_id(read.answer);
    }
}

int Model::wait() {
    const std::string tag = "SKF_WaitForDevEvent";
    log("X_getCurrentSlots", "before");
    scan_slots();
    log("X_getCurrentSlots", "after");
    state.running = true;
    store(0);
    const int opened = store(ask("ValtoT_ContextInit", {calls::length(0)}).answer.code);
    if (opened != 0) {
        log(tag, at_line("end, ", opened, 571));
        return opened;
    }
    std::string event(332, '\0');
    std::uint32_t context = answered_length(0, 0);
    while (state.running) {
        const Asked& polled =
            ask("ValtoT_WaitForEvent", {value(1), value(0), memory(event), calls::length(context)});
        const auto filled = polled.answer.written.find(2);
        if (filled != polled.answer.written.end()) event = filled->second;
        context = answered_length(3, context);
        if (polled.stops) stop();
        if (polled.throws) {
            log(tag, at_line(" end in catch ,", state.last_error, 582));
        } else if (polled.answer.code == 0) {
            break;
        }
        ++sleeps_;
    }
    if (!state.running) {
        event_kind = 3;
        return opened;
    }
    std::string media;
    const std::uint32_t kind = number_at(event, 0), slot = number_at(event, 12);
    if (kind == 1) {
        const std::string arrival = "VALTO_EVENT_INFO::SLOT_DEVICEARRIVAL  ";
        log(arrival, at_line(" ", state.last_error, 596));
        event_kind = 1;
        log(arrival, " event.ei.slotEvent.u32SlotID = " +
                         std::to_string(static_cast<std::int32_t>(slot)) + ", line = 600");
        const Asked& read = ask("ValtoT_GetDeviceInfo", {value(slot), value(0xE0000), zeroes(396)});
        store(read.answer.code);
        log(arrival, at_line(" ", state.last_error, 603));
        media = media_id(read.answer);
    } else if (kind == 2) {
        const std::string removal = "VALTO_EVENT_INFO::SLOT_DEVICEREMOVE ";
        log(removal, at_line("", state.last_error, 606));
        event_kind = 2;
        media = state.slots[slot];
        log(removal, at_line(" ", state.last_error, 609));
        store(0);
    }
    ask("ValtoT_ContextFinal", {});
    length = static_cast<std::uint32_t>(media.size());
    write_text(media);
    log(tag, at_line("end, ", state.last_error, 616));
    return state.last_error;
}

int Model::stop() {
    initialise_on_first_use();
    state.running = false;
    return store(0);
}

}  // namespace calls
