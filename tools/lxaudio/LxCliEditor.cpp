#include "LxCliEditor.h"

#include <algorithm>
#include <list>
#include <map>
#include <sstream>
#include "LxCliAssertLog.h"
#include "LxCliFailure.h"
#include "LxCliProject.h"
#include "LxCliUnits.h"

namespace {

// Operation names and how many arguments each takes.
const std::map<std::string, int>& Arities() {
    static const std::map<std::string, int> arities = {
        {"delete", 2}, {"cut", 2},       {"copy", 2},   {"paste", 1},   {"insert", 4},  {"silence", 2},
        {"gain", 3},   {"normalize", 2}, {"fadein", 1}, {"fadeout", 1}, {"trim", 0},    {"split", 1},
    };
    return arities;
}

std::string Join(const std::string& name, const std::vector<std::string>& args) {
    std::string text = name;
    for (const std::string& arg : args) text += " " + arg;
    return text;
}

}  // namespace

LxCliEditor::LxCliEditor(LxCliProject& project, LxCliAssertLog& log, int clipID)
    : project_(project), log_(log), clipID_(clipID) {
    clip_ = project_.LoadClip(clipID);
}

LxCliEditor::~LxCliEditor() = default;

std::string LxCliEditor::Usage() {
    return "Operations (applied in order; each stores a new clip and prints its ID):\n"
           "  delete A B            remove the stretch A..B\n"
           "  cut A B               copy the stretch A..B, then remove it\n"
           "  copy A B              remember the stretch A..B for paste\n"
           "  paste POS             insert what copy or cut took at POS\n"
           "  insert POS CLIP2 A B  insert the stretch A..B of clip CLIP2 at POS\n"
           "  silence POS LEN       insert LEN of silence at POS\n"
           "  gain A B G            multiply the level of A..B by G (0.5, 2, -6dB)\n"
           "  normalize A B         bring the loudest point of A..B to full scale\n"
           "  fadein LEN            fade in over the first LEN of the clip\n"
           "  fadeout LEN           fade out over the last LEN of the clip\n"
           "  trim                  remove leading and trailing silence\n"
           "  split P1[,P2...]      store the pieces between the points as new clips\n"
           "                        (points are rounded to tenths of a second)\n"
           "Times: a plain number is milliseconds (1500); or 1500ms, 1.5s, or 66150f\n"
           "(frames at 44100 Hz, exact); 'end' is the clip's length. The stretch A..B\n"
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
        auto arity = Arities().find(name);
        if (arity == Arities().end())
            throw LxCliFailure("unknown edit operation", tokens[i], "see lxaudio edit --help",
                               LxCliFailure::kExitUsage);
        if (i + 1 + static_cast<size_t>(arity->second) > tokens.size())
            throw LxCliFailure("edit operation '" + name + "' needs " + std::to_string(arity->second) + " argument" +
                                   (arity->second == 1 ? "" : "s"),
                               "", "see lxaudio edit --help", LxCliFailure::kExitUsage);
        std::vector<std::string> args(tokens.begin() + static_cast<std::ptrdiff_t>(i + 1),
                                      tokens.begin() + static_cast<std::ptrdiff_t>(i + 1 + arity->second));
        current_ = Join(name, args);
        lines.push_back(current_ + ": " + Apply(name, args));
        i += 1 + static_cast<size_t>(arity->second);
    }
    return lines;
}

int LxCliEditor::Length() const { return clip_->WorthInFrames(); }

void LxCliEditor::CheckStretch(int start, int end, int length, const std::string& what) const {
    if (start >= end)
        throw LxCliFailure("cannot apply '" + current_ + "'", "", "the stretch is empty (its start is not before its end)");
    if (end > length)
        throw LxCliFailure("cannot apply '" + current_ + "'", "",
                           "the stretch ends past the end of " + what + " (" + std::to_string(length) + " frames, " +
                               LxCliUnits::Seconds(length) + ")");
}

void LxCliEditor::CheckPosition(int position, int length) const {
    if (position > length)
        throw LxCliFailure("cannot apply '" + current_ + "'", "",
                           "the position lies past the end of the clip (" + std::to_string(length) + " frames)");
}

void LxCliEditor::EngineRefused(size_t mark) const {
    std::string detail = log_.Summary(mark);
    throw LxCliFailure("cannot apply '" + current_ + "'", "", detail.empty() ? "the engine refused the edit" : detail);
}

int LxCliEditor::Store() {
    clipID_ = clip_->WriteToAudioFile();
    if (clipID_ < 1) throw LxCliFailure("cannot apply '" + current_ + "'", "", "the edited clip could not be stored");
    return clipID_;
}

std::unique_ptr<LxAudioClip> LxCliEditor::RenderFade(int start, int end, LxAudioEffectEnum effect) {
    LxAudioController& controller = project_.Controller();
    std::unique_ptr<LxAudioClipBase> piece = clip_->SubClip(clip_->Translate(start + 1), clip_->Translate(end + 1));
    if (!piece) throw LxCliFailure("cannot apply '" + current_ + "'", "", "the clip cannot be cut there");
    const int frames = end - start;
    const int durationMS = std::max(1, static_cast<int>((static_cast<long long>(frames) * 1000 + 22050) / 44100));
    LxAudioEffectClip faded(*piece, effect, 0, durationMS);
    const int channels = faded.GetMaximumNumberOfChannels();
    std::unique_ptr<LxAudioClip> rendered = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
    std::vector<unsigned char> buffer(LxAudioClip::kPageBytes);
    faded.SeekToBeginning();
    for (int guard = 0; guard < 1 << 24 && !faded.IsFinished(); ++guard) {
        int got = 0;
        faded.GetNextPCMData(channels, buffer.data(), static_cast<int>(buffer.size()), got, nullptr, false);
        if (got > 0) rendered->AppendPCMData(buffer.data(), got, channels, 44100, 16, 1.0f);
    }
    // Store the last page as it is: the faded piece keeps its exact length.
    rendered->FlushPendingPCMData(channels, 44100, 16, 1.0f);
    return rendered;
}

std::string LxCliEditor::Apply(const std::string& name, const std::vector<std::string>& args) {
    LxAudioController& controller = project_.Controller();
    const int length = Length();
    const size_t mark = log_.Mark();
    std::ostringstream result;
    auto stored = [&](const std::string& detail) {
        int id = Store();
        std::ostringstream line;
        line << "clip " << id << ", " << Length() << " frames (" << LxCliUnits::Seconds(Length()) << ")";
        if (!detail.empty()) line << ", " << detail;
        return line.str();
    };

    if (name == "delete" || name == "cut" || name == "copy") {
        int a = LxCliUnits::ParseFrames(args[0], length);
        int b = LxCliUnits::ParseFrames(args[1], length);
        CheckStretch(a, b, length, "the clip");
        if (name != "delete") {
            clipboard_ = clip_->GetPageRanges();
            clipboardStart_ = a;
            clipboardEnd_ = b;
            if (name == "copy") return "copied " + std::to_string(b - a) + " frames (clip " +
                                       std::to_string(clipID_) + " unchanged)";
        }
        LxAudioEditableClip editable(*clip_);
        int deleted = 0;
        if (!editable.Delete(a, b, deleted, true)) EngineRefused(mark);
        return stored("removed " + std::to_string(deleted) + " frames");
    }
    if (name == "paste") {
        if (clipboardStart_ < 0)
            throw LxCliFailure("cannot apply '" + current_ + "'", "", "nothing was copied (use copy or cut first)");
        int position = LxCliUnits::ParseFrames(args[0], length);
        CheckPosition(position, length);
        LxAudioEditableClip editable(*clip_);
        int inserted = 0;
        if (!editable.InsertAt(position, clipboard_, clipboardStart_, clipboardEnd_, inserted)) EngineRefused(mark);
        return stored("inserted " + std::to_string(inserted) + " frames");
    }
    if (name == "insert") {
        int position = LxCliUnits::ParseFrames(args[0], length);
        int sourceID = LxCliUnits::ParseInt(args[1], "clip ID");
        CheckPosition(position, length);
        std::unique_ptr<LxAudioClip> source = project_.LoadClip(sourceID);
        const int sourceLength = source->WorthInFrames();
        int a = LxCliUnits::ParseFrames(args[2], sourceLength);
        int b = LxCliUnits::ParseFrames(args[3], sourceLength);
        CheckStretch(a, b, sourceLength, "clip " + std::to_string(sourceID));
        LxAudioEditableClip editable(*clip_);
        int inserted = 0;
        if (!editable.InsertAt(position, inserted, *source, a, b)) EngineRefused(mark);
        return stored("inserted " + std::to_string(inserted) + " frames");
    }
    if (name == "silence") {
        int position = LxCliUnits::ParseFrames(args[0], length);
        int frames = LxCliUnits::ParseFrames(args[1]);
        CheckPosition(position, length);
        if (frames < 1) throw LxCliFailure("cannot apply '" + current_ + "'", "", "the silence has no length");
        LxAudioEditableClip editable(*clip_);
        int inserted = 0;
        // Inside the clip the engine inserts the stretch (1, n) of its silence,
        // n - 1 frames; near the end it appends n frames. Ask for what gives LEN.
        const bool appends = position >= length - 90;
        if (!editable.InsertSilenceFrames(position, appends ? frames : frames + 1, inserted)) EngineRefused(mark);
        return stored("inserted " + std::to_string(inserted) + " frames of silence");
    }
    if (name == "gain" || name == "normalize") {
        int a = LxCliUnits::ParseFrames(args[0], length);
        int b = LxCliUnits::ParseFrames(args[1], length);
        CheckStretch(a, b, length, "the clip");
        LxAudioEditableClip editable(*clip_);
        if (name == "gain") {
            float gain = LxCliUnits::ParseGain(args[2]);
            LxAudioVolumeEffect effect(gain, 0.0f, 1.0f);
            if (!editable.AddEffect(a, b, effect)) EngineRefused(mark);
            result << "gain " << gain;
        } else {
            clip_->LoadThumbnail();
            float gain = clip_->GetBestVolume(a, b);
            if (!editable.Normalize(a, b)) EngineRefused(mark);
            result << "gain " << gain;
        }
        return stored(result.str());
    }
    if (name == "fadein" || name == "fadeout") {
        int ms = LxCliUnits::ParseMilliseconds(args[0]);
        int frames = std::min(LxCliUnits::MillisecondsToFrames(ms), length);
        if (frames < 1) throw LxCliFailure("cannot apply '" + current_ + "'", "", "the fade has no length");
        const bool in = name == "fadein";
        const int start = in ? 0 : length - frames;
        const int end = in ? frames : length;
        std::unique_ptr<LxAudioClip> faded = RenderFade(start, end, in ? LxAudioEffectFadeIn : LxAudioEffectFadeOut);
        std::unique_ptr<LxAudioClip> joined = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
        // The untouched part keeps pointing at the old pages.
        std::unique_ptr<LxAudioClipBase> rest;
        if (in && end < length) rest = clip_->SubClip(clip_->Translate(end + 1), clip_->Translate(length + 1));
        if (!in && start > 0) rest = clip_->SubClip(clip_->Translate(1), clip_->Translate(start + 1));
        if (in) {
            joined->AppendClip(*faded);
            if (rest) joined->AppendClip(*rest);
        } else {
            if (rest) joined->AppendClip(*rest);
            joined->AppendClip(*faded);
        }
        if (log_.CountSince(mark) > 0) EngineRefused(mark);
        clip_ = std::move(joined);
        return stored(std::to_string(frames) + " frames faded");
    }
    if (name == "trim") {
        float leading = 0;
        std::unique_ptr<LxAudioClipBase> trimmed = clip_->TrimSilence(leading);
        if (!trimmed || trimmed->IsEmpty())
            throw LxCliFailure("cannot apply '" + current_ + "'", "", "the clip is silent throughout");
        std::unique_ptr<LxAudioClip> kept = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
        kept->AppendClip(*trimmed);
        clip_ = std::move(kept);
        int removed = length - Length();
        return stored("removed " + std::to_string(removed) + " frames of silence (" +
                      LxCliUnits::Seconds(LxCliUnits::MillisecondsToFrames(leading * 1000.0)) + " at the start)");
    }
    if (name == "split") {
        std::list<int> points;
        std::stringstream list(args[0]);
        std::string item;
        const int total = clip_->WorthInDeciSeconds();
        int previous = 0;
        while (std::getline(list, item, ',')) {
            int frames = LxCliUnits::ParseFrames(item, length);
            int ds = (frames + 2205) / 4410;
            if (ds <= previous || ds >= total)
                throw LxCliFailure("cannot apply '" + current_ + "'", "",
                                   "split points must increase and lie inside the clip (rounded to tenths of a second)");
            points.push_back(ds);
            previous = ds;
        }
        std::list<int> ids;
        clip_->Split(points, ids);
        if (log_.CountSince(mark) > 0) EngineRefused(mark);
        std::string text = "pieces";
        for (int id : ids) {
            auto piece = controller.GetClipBase(id);
            text += " clip " + std::to_string(id) + " (" + LxCliUnits::Seconds(piece->WorthInFrames()) + ")";
        }
        return text + "; clip " + std::to_string(clipID_) + " unchanged";
    }
    throw LxCliFailure("unknown edit operation", name, "", LxCliFailure::kExitUsage);
}
