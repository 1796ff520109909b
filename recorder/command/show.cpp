#include "show.h"

#include <time.h>

#include <algorithm>
#include <cstdio>

#include "kit/text.h"

namespace kesta {
namespace recorder {

using kit::_;
using kit::Fill;
using kit::N_;

namespace {

std::string TextOf(const Json& bytes) {
    const auto& binary = bytes.get_binary();
    return {binary.begin(), binary.end()};
}

std::string ToHex(const std::string& bytes) {
    std::string text;
    char pair[3];
    for (const char byte : bytes) {
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(byte));
        text += pair;
    }
    return text;
}

// Text of a person's; anything else is shown by its bytes.
bool IsText(const std::string& text) {
    const auto control = [](char one) {
        const auto byte = static_cast<unsigned char>(one);
        return (byte < 0x20 && one != '\n' && one != '\r' && one != '\t') || byte == 0x7f;
    };
    if (std::any_of(text.begin(), text.end(), control)) return false;
    try {
        return !Json(text).dump().empty();
    } catch (const Json::type_error&) {
        return false;
    }
}

bool IsHidden(const Json& kept) {
    return kept.is_array() && kept.size() == 2 && kept[0].is_number() && kept[1].is_binary();
}

std::string When(std::uint64_t wall) {
    const auto seconds = static_cast<time_t>(wall / 1000000000);
    tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

double Milliseconds(std::uint64_t from, std::uint64_t to) {
    return to < from ? 0 : static_cast<double>(to - from) / 1e6;
}

bool Failed(const Call& call) {
    return call.how != kReturned || !call.ended() ||
           (call.result.is_number() && call.result.get<std::int64_t>() != 0);
}

const char* HowItEnded(const Call& call) {
    if (!call.ended()) return "never";
    return call.how == kReturned ? "returned" : call.how == kThrew ? "threw" : "cancelled";
}

std::string Printable(std::string text) {
    for (char& one : text) {
        const auto byte = static_cast<unsigned char>(one);
        if (byte < 0x20 || byte == 0x7f) one = '?';
    }
    return text;
}

// A value as a person reads it.
std::string Brief(const OrderedJson& told) {
    if (told.is_null()) return "NULL";
    if (told.is_string()) return told.get<std::string>();
    if (told.is_array()) {
        std::string text;
        for (const OrderedJson& one : told) text += (text.empty() ? "" : ", ") + Brief(one);
        return "[" + text + "]";
    }
    if (!told.is_object()) return told.dump();
    if (const auto kept = told.find("text"); kept != told.end()) {
        return "\"" + Printable(kept->get<std::string>()) + "\"";
    }
    if (const auto kept = told.find("hex"); kept != told.end()) {
        return kept->get<std::string>();
    }
    return Fill(_("{1} ({2} bytes)"),
                {told.at("name").get<std::string>(), told.at("length").dump()});
}

std::string BriefList(const OrderedJson& values) {
    std::string text;
    for (const auto& [name, value] : values.items()) {
        text += (text.empty() ? "" : ", ") + name + " " + Brief(value);
    }
    return text;
}

std::string CallLine(const OrderedJson& call, const std::string& indent) {
    char lead[96];
    std::snprintf(lead, sizeof lead, "%6s %10.3f ms ", call.at("call").dump().c_str(),
                  call.at("start_ms").get<double>());
    std::string text = lead + ("[" + call.at("process").dump() + "." + call.at("thread").dump()) +
                       "] " + indent + call.at("function").get<std::string>() + "(" +
                       BriefList(call.at("arguments")) + ")";
    const std::string ended = call.at("ended");
    if (ended != "returned")
        return text + "  " +
               (ended == "never"   ? _("NEVER RETURNED")
                : ended == "threw" ? _("THREW")
                                   : _("CANCELLED"));
    if (!call.at("result").is_null()) text += " = " + Brief(call.at("result"));
    if (!call.at("outputs").empty()) text += "  -> " + BriefList(call.at("outputs"));
    std::snprintf(lead, sizeof lead, "  %.3f ms", call.at("duration_ms").get<double>());
    text += lead;
    return text + (call.at("failed").get<bool>() ? std::string("  ") + _("FAILED") : "");
}

}  // namespace

std::string ToLine(const OrderedJson& object) {
    return object.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

std::string Teller::NameOf(const std::string& tag, const std::string& visibility) {
    std::string& name = names_[tag];
    if (name.empty()) name = visibility + "-" + std::to_string(++counts_[visibility]);
    return name;
}

OrderedJson Teller::Value(const Json& kept, const std::string& visibility) {
    if (kept.is_boolean()) return "buffer";
    if (kept.is_binary()) {
        const std::string bytes = TextOf(kept);
        if (IsText(bytes)) return {{"text", bytes}};
        return {{"hex", ToHex(bytes)}};
    }
    if (IsHidden(kept)) {
        return {{"class", visibility},
                {"length", kept[0].get<std::uint64_t>()},
                {"name", NameOf(TextOf(kept[1]), visibility)}};
    }
    if (kept.is_array()) {
        OrderedJson list = OrderedJson::array();
        for (const Json& one : kept) list.push_back(Value(one, visibility));
        return list;
    }
    return OrderedJson::parse(kept.dump());
}

OrderedJson Teller::Values(const Json& kept, const Function& function, bool outputs) {
    OrderedJson told = OrderedJson::object();
    for (std::size_t i = 0; kept.is_array() && i < kept.size(); ++i) {
        if (outputs && kept[i].is_null()) continue;
        told[function.parameters[i].name] = Value(kept[i], function.parameters[i].visibility);
    }
    return told;
}

OrderedJson Teller::Head() const {
    const Json& description = recording_.description;
    return {{"recording",
             {{"format", description.value("format", 0)},
              {"ukey", description.value("ukey", "")},
              {"made", When(description.value("wall", std::uint64_t{0}))},
              {"full", recording_.full},
              {"calls", recording_.calls.size()},
              {"lost", recording_.lost},
              {"unfinished", recording_.unfinished},
              {"damaged", recording_.damaged}}}};
}

OrderedJson Teller::TellProcess(const Process& process) const {
    return {{"process", process.number},
            {"pid", process.id},
            {"started", When(process.wall)},
            {"program", process.program},
            {"machine", process.machine}};
}

OrderedJson Teller::TellLibrary(const Library& library) const {
    return {{"library", library.file},
            {"process", library.process},
            {"boundary", library.boundary},
            {"size", library.size},
            {"build", library.build}};
}

OrderedJson Teller::TellCall(const Call& call) {
    const Function& function = recording_.FunctionOf(call);
    const auto began = recording_.description.value("time", std::uint64_t{0});
    OrderedJson told = {{"call", call.number},
                        {"parent", nullptr},
                        {"process", call.process},
                        {"thread", call.thread},
                        {"start_ms", Milliseconds(began, call.start)},
                        {"duration_ms", nullptr},
                        {"boundary", function.boundary},
                        {"function", function.name},
                        {"arguments", Values(call.arguments, function, false)},
                        {"ended", HowItEnded(call)},
                        {"result", Value(call.result, "public")},
                        {"last_error", OrderedJson::parse(call.lastError.dump())},
                        {"outputs", Values(call.outputs, function, true)},
                        {"failed", Failed(call)}};
    if (call.parent != 0) told["parent"] = call.parent;
    if (call.ended()) told["duration_ms"] = Milliseconds(call.start, call.end);
    return told;
}

void ShowText(const Recording& recording, const Line& line) {
    Teller teller(recording);
    const OrderedJson head = teller.Head().at("recording");
    line(Fill(recording.full ? _("recorded {1} by ukey {2}, in full")
                             : _("recorded {1} by ukey {2}, without identifiers and contents"),
              {head.at("made").get<std::string>(), head.at("ukey").get<std::string>()}));
    for (const Process& process : recording.processes) {
        line(Fill(_("process {1}  {2} (pid {3}, {4})"),
                  {std::to_string(process.number), process.program, std::to_string(process.id),
                   process.machine}));
    }
    for (const Library& library : recording.libraries) {
        line(Fill(library.build.empty()
                      ? _("library {1} in process {2}, {3} bytes, build without an id")
                      : _("library {1} in process {2}, {3} bytes, build {4}"),
                  {library.file, std::to_string(library.process), std::to_string(library.size),
                   library.build}));
    }
    const std::pair<std::uint64_t, const char*> gaps[] = {
        {recording.lost, N_("{1} records were lost: there was no room for them")},
        {recording.unfinished, N_("{1} records are unfinished: their process ended meanwhile")},
        {recording.damaged, N_("{1} records are damaged")}};
    for (const auto& [count, words] : gaps) {
        if (count != 0) line(Fill(_(words), {std::to_string(count)}));
    }
    for (const Call& call : recording.calls) {
        line(CallLine(teller.TellCall(call), call.parent == 0 ? "" : "    "));
    }
}

void ShowJson(const Recording& recording, const Line& line) {
    Teller teller(recording);
    line(ToLine(teller.Head()));
    for (const Process& process : recording.processes) line(ToLine(teller.TellProcess(process)));
    for (const Library& library : recording.libraries) line(ToLine(teller.TellLibrary(library)));
    for (const Call& call : recording.calls) line(ToLine(teller.TellCall(call)));
}

}  // namespace recorder
}  // namespace kesta
