// A token that lies: any code, with or without its outputs, lengths that tell nothing, texts
// without an end.
#include <cstring>
#include <limits>

#include "exports.h"

namespace calls {

namespace {

using recording::Answer;

int any_code(Draw& draw) {
    static const int some[] = {1, -1, -101, -404, 0x63, std::numeric_limits<int>::min()};
    if (!draw.once_in(5)) return 0;
    return draw.once_in(4) ? static_cast<int>(draw.next()) : draw.of(some);
}

std::string any_text(Draw& draw, std::size_t room) {
    std::size_t size = draw.below(12);
    if (draw.once_in(12)) size = room - draw.below(3);
    if (draw.once_in(12)) size = draw.below(room + 1);
    std::string made(size < room ? size : room, static_cast<char>('a' + draw.below(26)));
    // Texts often end before their bytes do, and sometimes only with their memory.
    if (made.size() > 4 && draw.once_in(4)) made[draw.below(made.size())] = '\0';
    return made;
}

std::uint32_t any_length(Draw& draw, std::size_t truth) {
    static const std::uint32_t lies[] = {0,    1,          4096,       4097,
                                         9000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    if (!draw.once_in(3)) return static_cast<std::uint32_t>(truth);
    if (draw.once_in(2)) return static_cast<std::uint32_t>(truth + 1 - 2 * draw.below(2));
    return draw.of(lies);
}

// A text, and its length where the entry point tells one.
void hand_out(Draw& draw, Answer& answer, std::size_t argument, std::size_t room, bool tells) {
    if (draw.once_in(10)) return;
    const std::string text = any_text(draw, room);
    answer.Writes(argument, text);
    if (tells && !draw.once_in(6)) {
        answer.WritesNumber(argument + 1, any_length(draw, std::strlen(text.c_str())));
    }
}

// Writes over the private copy of an argument; the caller's own must not show it.
void scribble(Draw& draw, Answer& answer, const recording::Call& call, std::size_t argument) {
    if (call.Bytes(argument).empty() || !draw.once_in(3)) return;
    answer.Writes(argument, "#");
}

std::string event_record(Draw& draw) {
    std::string record(332, static_cast<char>(draw.below(256)));
    const std::uint32_t kinds[] = {1, 1, 2, 2, 2, 3, 0, 0x80000001};
    record.replace(0, 4, recording::BytesOf(draw.of(kinds)));
    return record.replace(12, 4, recording::BytesOf(std::uint32_t{draw.below(6)}));
}

std::string device_record(Draw& draw) {
    std::string record(396, static_cast<char>('p' + draw.below(4)));
    const std::string media = any_text(draw, 16);
    record.replace(248, media.size(), media);
    if (media.size() < 16) record[248 + media.size()] = '\0';
    return record;
}

void answer_slots(Draw& draw, Answer& answer) {
    static const unsigned counts[] = {0, 1, 2, 3, 5, 10, 16, 17, 0xFFFFFFFF};
    std::string ids;
    for (int nth = 0; nth < 16; ++nth) ids += recording::BytesOf(std::uint32_t{draw.below(6)});
    if (!draw.once_in(8)) answer.Writes(1, ids);
    if (!draw.once_in(8)) answer.WritesNumber(2, draw.of(counts));
}

void answer_device(Draw& draw, Answer& answer, const recording::Call& call) {
    // The scan's record is not zeroed: success without a record would show what was there.
    const bool scan = call.At(1).value == 0;
    if ((scan && answer.code == 0) || !draw.once_in(4)) answer.Writes(2, device_record(draw));
}

void answer_poll(Draw& draw, Asked& asked, int polls) {
    Answer& answer = asked.answer;
    answer.code = draw.once_in(2) || polls > 5 ? 0 : draw.once_in(2) ? 1 : -1;
    if (draw.once_in(2) || (answer.code == 0 && !draw.once_in(8)))
        answer.Writes(2, event_record(draw));
    if (draw.once_in(8)) answer.WritesNumber(3, draw.below(9));
    asked.stops = draw.once_in(9);
    asked.throws = answer.code != 0 && draw.once_in(3);
}

void answer_message(Draw& draw, Answer& answer) {
    // Handed out for good, so there are not too many.
    static const unsigned sizes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 198, 199, 200, 201, 600};
    answer.Message(std::string(draw.of(sizes), 'm'));
    if (draw.once_in(20)) answer.NullMessage();
}

// Which output an entry point has: its argument, its room, whether a length follows it.
struct Output {
    const char* entry;
    std::size_t argument, room;
    bool tells;
};
const Output outputs[] = {{"CheckDeviceEx", 3, 1024, false}, {"GetLabel", 1, 512, false},
                          {"GetCertInfo", 3, 4096, true},    {"GM_GetCertDN", 3, 1024, false},
                          {"GetData", 2, 260, false},        {"GMUsbKeyCriticalSign", 4, 300, true},
                          {"GetPinInfo", 1, 8, true},        {"GetCertInfo_UOS", 2, 1280, true},
                          {"Batch_Sign", 11, 300, true}};

}  // namespace

Answer any_answer(Draw& draw, Asked& asked, int polls) {
    const std::string& entry = asked.call.entry;
    Answer& answer = asked.answer;
    if (entry == "ValtoT_WaitForEvent") {
        answer_poll(draw, asked, polls);
        return answer;
    }
    answer.Returns(any_code(draw));
    for (const Output& output : outputs) {
        if (entry == output.entry) {
            hand_out(draw, answer, output.argument, output.room, output.tells);
        }
    }
    if (entry == "GetLabel") scribble(draw, answer, asked.call, 0);
    if (entry == "GMUsbKeyCommonSign" || entry == "GMUSBKeyAsymDec2") {
        const bool signs = entry == "GMUsbKeyCommonSign";
        const std::string& input = asked.call.Bytes(3);
        hand_out(draw, answer, signs ? 5 : 4, (input.size() + 4096) * 2, true);
        scribble(draw, answer, asked.call, 0);
        scribble(draw, answer, asked.call, 3);
    }
    if ((entry == "GMCreatePKCS10" || entry == "GMCreatePKCS10Ex") && !draw.once_in(6)) {
        answer.Request(any_text(draw, 3000).c_str());
    }
    if (entry == "GMWritePKCS7" && draw.once_in(3)) answer.Fills(any_text(draw, 40));
    if (entry == "X_ErrorConvert_UOS") answer_message(draw, answer);
    if (entry == "ValtoT_GetSlotList") answer_slots(draw, answer);
    if (entry == "ValtoT_GetDeviceInfo") answer_device(draw, answer, asked.call);
    if (entry == "ValtoT_ContextInit" && draw.once_in(3)) answer.WritesNumber(0, draw.below(9));
    return answer;
}

}  // namespace calls
