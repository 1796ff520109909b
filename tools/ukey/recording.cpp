#include "recording.h"

#include "command/run.h"
#include "file/reader.h"
#include "kit/files.h"
#include "kit/language.h"

namespace ukey {

namespace recorder = kesta::recorder;

namespace {

// Said by the recorder's libraries, which run in other programs.
const std::vector<const char*> kRecorderSentences = {
    N_("this is no recording"),
    N_("this recording has version {1} of the format; this program reads version {2}"),
    N_("this recording is cut within its head"),
    N_("a record of an unknown kind"),
    N_("a call of no function"),
    N_("outputs of another function"),
    N_("no array"),
    N_("cannot be read"),
    N_("this recording was made by another version, with other functions"),
    N_("its key is missing"),
    N_("call {1}, {2}: {3} was recorded as {4}"),
    N_("a call of {1} comes where the recording has no further call"),
    N_("call {1}, {2} was recorded, now it is {3}"),
    N_("call {1}, {2} was recorded, now {3} ends without it"),
    N_("call {1}, {2} ends in another way: by returning, an exception or a cancellation"),
    N_("call {1}, {2} had not ended when its process did"),
    N_("call {1}, {2} was recorded with the outputs of another function"),
    N_("the recording has no call of {1} with these arguments: {2}"),
    N_("{1}, now it is {2} of other content"),
    N_("{1}, now it is {2}"),
    N_("{1} ({2} bytes)"),
    N_("{1} bytes"),
    N_("a buffer"),
    N_("the result"),
};

}  // namespace

std::string RecorderText(const std::string& english) {
    return Recognised(english, kRecorderSentences);
}

Exit OnRecording(const std::string& file, const std::function<Exit()>& work) {
    try {
        return work();
    } catch (const recorder::BadRecording& bad) {
        throw kit::FileError(Fill(_("{1}: {2}"), {file, RecorderText(bad.what())}), 0);
    } catch (const recorder::CannotRun& cannot) {
        throw kit::FileError(cannot.what(), 0);
    }
}

void TakeCommand(const Options& options, std::vector<std::string>& words) {
    options.Texts("COMMAND", words, "COMMAND", N_("What to run, with its arguments, behind --"))
        .Required();
}

}  // namespace ukey
