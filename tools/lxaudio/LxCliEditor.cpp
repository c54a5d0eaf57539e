#include "LxCliEditor.h"

#include <algorithm>
#include <list>
#include <sstream>
#include "LxAudioConstants.h"
#include "LxCliAssertLog.h"
#include "LxCliFailure.h"
#include "LxCliProject.h"
#include "LxCliUnits.h"

namespace {

std::string Join(const std::string& name, const std::vector<std::string>& args) {
    std::string text = name;
    for (const std::string& arg : args) text += " " + arg;
    return text;
}

}  // namespace

LxCliEditor::LxCliEditor(LxCliProject& edited, LxCliAssertLog& reports, int startClipID)
    : project(edited), log(reports), clipID(startClipID) {
    clip = project.LoadClip(clipID);
}

LxCliEditor::~LxCliEditor() = default;

// Every operation: its name, how many arguments it takes, how --help shows it,
// and the member that applies it. The table is the one list of operations.
const std::vector<LxCliEditor::Operation>& LxCliEditor::Operations() {
    static const std::vector<Operation> operations = {
        {"delete", 2, "delete A B", "remove the stretch A..B", &LxCliEditor::ApplyRemoveOrCopy},
        {"cut", 2, "cut A B", "copy the stretch A..B, then remove it", &LxCliEditor::ApplyRemoveOrCopy},
        {"copy", 2, "copy A B", "remember the stretch A..B for paste", &LxCliEditor::ApplyRemoveOrCopy},
        {"paste", 1, "paste POS", "insert what copy or cut took at POS", &LxCliEditor::ApplyPaste},
        {"insert", 4, "insert POS CLIP2 A B", "insert the stretch A..B of clip CLIP2 at POS",
         &LxCliEditor::ApplyInsert},
        {"silence", 2, "silence POS LEN", "insert LEN of silence at POS", &LxCliEditor::ApplySilence},
        {"gain", 3, "gain A B G", "multiply the level of A..B by G (0.5, 2, -6dB)", &LxCliEditor::ApplyLevel},
        {"normalize", 2, "normalize A B", "bring the loudest point of A..B to full scale", &LxCliEditor::ApplyLevel},
        {"fadein", 1, "fadein LEN", "fade in over the first LEN of the clip", &LxCliEditor::ApplyFade},
        {"fadeout", 1, "fadeout LEN", "fade out over the last LEN of the clip", &LxCliEditor::ApplyFade},
        {"trim", 0, "trim", "remove leading and trailing silence", &LxCliEditor::ApplyTrim},
        {"split", 1, "split P1[,P2...]",
         "store the pieces between the points as new clips\n"
         "                        (points are rounded to tenths of a second)",
         &LxCliEditor::ApplySplit},
    };
    return operations;
}

const LxCliEditor::Operation* LxCliEditor::Find(const std::string& name) {
    for (const Operation& operation : Operations()) {
        if (name == operation.name) return &operation;
    }
    return nullptr;
}

std::string LxCliEditor::Usage() {
    std::string text = "Operations (applied in order; each stores a new clip and prints its ID):\n";
    for (const Operation& operation : Operations()) {
        std::string synopsis = operation.synopsis;
        synopsis.resize(std::max<size_t>(synopsis.size() + 2, 22), ' ');
        text += "  " + synopsis + operation.description + "\n";
    }
    return text +
           "Times: a plain number is milliseconds (1500); or 1500ms, 1.5s, or 66150f\n"
           "(frames at kLxFrameRate Hz, exact); 'end' is the clip's length. The stretch A..B\n"
           "holds frames A to B-1, so 'delete 0 1s' removes the first second.\n"
           "Fades are rendered at millisecond precision.";
}

std::vector<std::string> LxCliEditor::Run(const std::vector<std::string>& tokens) {
    if (tokens.empty())
        throw LxCliFailure("nothing to do", "", "give at least one operation (see lxaudio edit --help)",
                           LxCliFailure::kExitUsage);
    std::vector<std::string> lines;
    size_t i = 0;
    while (i < tokens.size()) {
        std::string name = tokens[i];
        for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        const Operation* operation = Find(name);
        if (operation == nullptr)
            throw LxCliFailure("unknown edit operation", tokens[i], "see lxaudio edit --help",
                               LxCliFailure::kExitUsage);
        const int count = operation->arguments;
        if (i + 1 + static_cast<size_t>(count) > tokens.size())
            throw LxCliFailure("edit operation '" + name + "' needs " + std::to_string(count) + " argument" +
                                   (count == 1 ? "" : "s"),
                               "", "see lxaudio edit --help", LxCliFailure::kExitUsage);
        std::vector<std::string> args(tokens.begin() + static_cast<std::ptrdiff_t>(i + 1),
                                      tokens.begin() + static_cast<std::ptrdiff_t>(i + 1 + count));
        current = Join(name, args);
        // What the operation starts from: the clip's length, and the engine's
        // reports from here on (an edit the engine refused names them).
        const Step step{name, args, Length(), log.Mark()};
        lines.push_back(current + ": " + (this->*operation->apply)(step));
        i += 1 + static_cast<size_t>(count);
    }
    return lines;
}

int LxCliEditor::Length() const { return clip->WorthInFrames(); }

void LxCliEditor::CheckStretch(int start, int end, int length, const std::string& what) const {
    if (start >= end)
        throw LxCliFailure("cannot apply '" + current + "'", "", "the stretch is empty (its start is not before its end)");
    if (end > length)
        throw LxCliFailure("cannot apply '" + current + "'", "",
                           "the stretch ends past the end of " + what + " (" + std::to_string(length) + " frames, " +
                               LxCliUnits::Seconds(length) + ")");
}

void LxCliEditor::CheckPosition(int position, int length) const {
    if (position > length)
        throw LxCliFailure("cannot apply '" + current + "'", "",
                           "the position lies past the end of the clip (" + std::to_string(length) + " frames)");
}

void LxCliEditor::EngineRefused(size_t mark) const {
    std::string detail = log.Summary(mark);
    throw LxCliFailure("cannot apply '" + current + "'", "", detail.empty() ? "the engine refused the edit" : detail);
}

int LxCliEditor::Store() {
    clipID = clip->WriteToAudioFile();
    if (clipID < 1) throw LxCliFailure("cannot apply '" + current + "'", "", "the edited clip could not be stored");
    return clipID;
}

std::unique_ptr<LxAudioClip> LxCliEditor::RenderFade(int start, int end, LxAudioEffectEnum effect) {
    LxAudioController& controller = project.Controller();
    std::unique_ptr<LxAudioClipBase> piece = clip->SubClip(clip->Translate(start + 1), clip->Translate(end + 1));
    if (!piece) throw LxCliFailure("cannot apply '" + current + "'", "", "the clip cannot be cut there");
    const int frames = end - start;
    const int durationMS = std::max(1, static_cast<int>((static_cast<long long>(frames) * 1000 + kLxFrameRate / 2) / kLxFrameRate));
    LxAudioEffectClip faded(*piece, effect, 0, durationMS);
    const int channels = faded.GetMaximumNumberOfChannels();
    std::unique_ptr<LxAudioClip> rendered = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
    std::vector<unsigned char> buffer(LxAudioClip::kPageBytes);
    faded.SeekToBeginning();
    for (int guard = 0; guard < 1 << 24 && !faded.IsFinished(); ++guard) {
        int got = 0;
        faded.GetNextPCMData(channels, buffer.data(), static_cast<int>(buffer.size()), got, nullptr, false);
        if (got > 0) rendered->AppendPCMData(buffer.data(), got, channels, kLxFrameRate, kLxBitsPerSample, 1.0f);
    }
    // Store the last page as it is: the faded piece keeps its exact length.
    rendered->FlushPendingPCMData(channels, kLxFrameRate, kLxBitsPerSample, 1.0f);
    return rendered;
}

std::string LxCliEditor::Stored(const std::string& detail) {
    int id = Store();
    std::ostringstream line;
    line << "clip " << id << ", " << Length() << " frames (" << LxCliUnits::Seconds(Length()) << ")";
    if (!detail.empty()) line << ", " << detail;
    return line.str();
}

// delete, cut and copy.
std::string LxCliEditor::ApplyRemoveOrCopy(const Step& step) {
    const std::string& name = step.name;
    const int length = step.length;
    int a = LxCliUnits::ParseFrames(step.args[0], length);
    int b = LxCliUnits::ParseFrames(step.args[1], length);
    CheckStretch(a, b, length, "the clip");
    if (name != "delete") {
        clipboard = clip->GetPageRanges();
        clipboardStart = a;
        clipboardEnd = b;
        if (name == "copy") return "copied " + std::to_string(b - a) + " frames (clip " +
                                   std::to_string(clipID) + " unchanged)";
    }
    LxAudioEditableClip editable(*clip);
    int deleted = 0;
    if (!editable.Delete(a, b, deleted, true)) EngineRefused(step.mark);
    return Stored("removed " + std::to_string(deleted) + " frames");
}

std::string LxCliEditor::ApplyPaste(const Step& step) {
    const int length = step.length;
    if (clipboardStart < 0)
        throw LxCliFailure("cannot apply '" + current + "'", "", "nothing was copied (use copy or cut first)");
    int position = LxCliUnits::ParseFrames(step.args[0], length);
    CheckPosition(position, length);
    LxAudioEditableClip editable(*clip);
    int inserted = 0;
    if (!editable.InsertAt(position, clipboard, clipboardStart, clipboardEnd, inserted)) EngineRefused(step.mark);
    return Stored("inserted " + std::to_string(inserted) + " frames");
}

std::string LxCliEditor::ApplyInsert(const Step& step) {
    const std::vector<std::string>& args = step.args;
    const int length = step.length;
    int position = LxCliUnits::ParseFrames(args[0], length);
    int sourceID = LxCliUnits::ParseInt(args[1], "clip ID");
    CheckPosition(position, length);
    std::unique_ptr<LxAudioClip> source = project.LoadClip(sourceID);
    const int sourceLength = source->WorthInFrames();
    int a = LxCliUnits::ParseFrames(args[2], sourceLength);
    int b = LxCliUnits::ParseFrames(args[3], sourceLength);
    CheckStretch(a, b, sourceLength, "clip " + std::to_string(sourceID));
    LxAudioEditableClip editable(*clip);
    int inserted = 0;
    if (!editable.InsertAt(position, inserted, *source, a, b)) EngineRefused(step.mark);
    return Stored("inserted " + std::to_string(inserted) + " frames");
}

std::string LxCliEditor::ApplySilence(const Step& step) {
    const int length = step.length;
    int position = LxCliUnits::ParseFrames(step.args[0], length);
    int frames = LxCliUnits::ParseFrames(step.args[1]);
    CheckPosition(position, length);
    if (frames < 1) throw LxCliFailure("cannot apply '" + current + "'", "", "the silence has no length");
    LxAudioEditableClip editable(*clip);
    int inserted = 0;
    // Inside the clip the engine inserts the stretch (1, n) of its silence,
    // n - 1 frames; near the end it appends n frames. Ask for what gives LEN.
    const bool appends = position >= length - 90;
    if (!editable.InsertSilenceFrames(position, appends ? frames : frames + 1, inserted)) EngineRefused(step.mark);
    return Stored("inserted " + std::to_string(inserted) + " frames of silence");
}

// gain and normalize.
std::string LxCliEditor::ApplyLevel(const Step& step) {
    const int length = step.length;
    int a = LxCliUnits::ParseFrames(step.args[0], length);
    int b = LxCliUnits::ParseFrames(step.args[1], length);
    CheckStretch(a, b, length, "the clip");
    LxAudioEditableClip editable(*clip);
    std::ostringstream result;
    if (step.name == "gain") {
        float gain = LxCliUnits::ParseGain(step.args[2]);
        LxAudioVolumeEffect effect(gain, 0.0f, 1.0f);
        if (!editable.AddEffect(a, b, effect)) EngineRefused(step.mark);
        result << "gain " << gain;
    } else {
        clip->LoadThumbnail();
        float gain = clip->GetBestVolume(a, b);
        if (!editable.Normalize(a, b)) EngineRefused(step.mark);
        result << "gain " << gain;
    }
    return Stored(result.str());
}

// fadein and fadeout.
std::string LxCliEditor::ApplyFade(const Step& step) {
    LxAudioController& controller = project.Controller();
    const int length = step.length;
    int ms = LxCliUnits::ParseMilliseconds(step.args[0]);
    int frames = std::min(LxCliUnits::MillisecondsToFrames(ms), length);
    if (frames < 1) throw LxCliFailure("cannot apply '" + current + "'", "", "the fade has no length");
    const bool in = step.name == "fadein";
    const int start = in ? 0 : length - frames;
    const int end = in ? frames : length;
    std::unique_ptr<LxAudioClip> faded = RenderFade(start, end, in ? LxAudioEffectFadeIn : LxAudioEffectFadeOut);
    std::unique_ptr<LxAudioClip> joined = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
    // The untouched part keeps pointing at the old pages.
    std::unique_ptr<LxAudioClipBase> rest;
    if (in && end < length) rest = clip->SubClip(clip->Translate(end + 1), clip->Translate(length + 1));
    if (!in && start > 0) rest = clip->SubClip(clip->Translate(1), clip->Translate(start + 1));
    if (in) {
        joined->AppendClip(*faded);
        if (rest) joined->AppendClip(*rest);
    } else {
        if (rest) joined->AppendClip(*rest);
        joined->AppendClip(*faded);
    }
    if (log.CountSince(step.mark) > 0) EngineRefused(step.mark);
    clip = std::move(joined);
    return Stored(std::to_string(frames) + " frames faded");
}

std::string LxCliEditor::ApplyTrim(const Step& step) {
    float leading = 0;
    std::unique_ptr<LxAudioClipBase> trimmed = clip->TrimSilence(leading);
    if (!trimmed || trimmed->IsEmpty())
        throw LxCliFailure("cannot apply '" + current + "'", "", "the clip is silent throughout");
    std::unique_ptr<LxAudioClip> kept = project.Controller().GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
    kept->AppendClip(*trimmed);
    clip = std::move(kept);
    int removed = step.length - Length();
    return Stored("removed " + std::to_string(removed) + " frames of silence (" +
                  LxCliUnits::Seconds(LxCliUnits::MillisecondsToFrames(leading * 1000.0)) + " at the start)");
}

std::string LxCliEditor::ApplySplit(const Step& step) {
    std::list<int> points;
    std::stringstream list(step.args[0]);
    std::string item;
    const int total = clip->WorthInDeciSeconds();
    int previous = 0;
    while (std::getline(list, item, ',')) {
        int frames = LxCliUnits::ParseFrames(item, step.length);
        int ds = (frames + 2205) / 4410;
        if (ds <= previous || ds >= total)
            throw LxCliFailure("cannot apply '" + current + "'", "",
                               "split points must increase and lie inside the clip (rounded to tenths of a second)");
        points.push_back(ds);
        previous = ds;
    }
    std::list<int> ids;
    clip->Split(points, ids);
    if (log.CountSince(step.mark) > 0) EngineRefused(step.mark);
    std::string text = "pieces";
    for (int id : ids) {
        auto piece = project.Controller().GetClipBase(id);
        text += " clip " + std::to_string(id) + " (" + LxCliUnits::Seconds(piece->WorthInFrames()) + ")";
    }
    return text + "; clip " + std::to_string(clipID) + " unchanged";
}
