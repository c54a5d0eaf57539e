#pragma once
// Runs the operations of `lxaudio edit` on one clip, in order. Each operation
// that changes the clip stores the result as a new clip (the old one stays as
// it was) and the next operation works on that new clip. Cuts, inserts,
// silence, gain and normalising only rewrite the clip's list of page ranges;
// fades are played through an effect clip and the faded stretch alone is
// written as new audio. Nothing reaches the disk here: the command saves the
// project once every operation has succeeded, so a failed operation leaves the
// project file as it was.
#include <memory>
#include <string>
#include <vector>
#include "LxAudioCore.h"

class LxCliAssertLog;
class LxCliProject;

class LxCliEditor {
public:
    LxCliEditor(LxCliProject& edited, LxCliAssertLog& reports, int startClipID);
    ~LxCliEditor();

    // Parses and applies every operation; throws LxCliFailure on the first that
    // cannot be done. Returns one line per operation with the resulting clip IDs.
    std::vector<std::string> Run(const std::vector<std::string>& tokens);

    // The clip that the last operation produced (the starting clip when none changed it).
    int CurrentClipID() const { return clipID; }

    // The operation names and their arguments, for --help.
    static std::string Usage();

private:
    // One operation as it is applied: its name and arguments, the length of
    // the working clip before it, and the log mark its engine reports follow.
    struct Step {
        const std::string& name;
        const std::vector<std::string>& args;
        int length;
        size_t mark;
    };
    // Each returns the line printed for the operation.
    using Handler = std::string (LxCliEditor::*)(const Step&);
    struct Operation {
        const char* name;
        int arguments;
        const char* synopsis;     // for --help: the name and its arguments
        const char* description;  // for --help
        Handler apply;
    };
    static const std::vector<Operation>& Operations();
    // The operation of that (lower-case) name; nullptr when there is none.
    static const Operation* Find(const std::string& name);

    std::string ApplyRemoveOrCopy(const Step& step);
    std::string ApplyPaste(const Step& step);
    std::string ApplyInsert(const Step& step);
    std::string ApplySilence(const Step& step);
    std::string ApplyLevel(const Step& step);
    std::string ApplyFade(const Step& step);
    std::string ApplyTrim(const Step& step);
    std::string ApplySplit(const Step& step);
    // Stores the working clip as a new clip and returns the operation's line:
    // "clip ID, N frames (S)", then detail.
    std::string Stored(const std::string& detail);
    // Stores the working clip as a new clip and returns its ID.
    int Store();
    int Length() const;
    void CheckStretch(int start, int end, int length, const std::string& what) const;
    void CheckPosition(int position, int length) const;
    // Renders frames [start, end) of the working clip through a fade into new
    // pages and returns that piece as a clip of its own (not stored).
    std::unique_ptr<LxAudioClip> RenderFade(int start, int end, LxAudioEffectEnum effect);
    [[noreturn]] void EngineRefused(size_t mark) const;

    LxCliProject& project;
    LxCliAssertLog& log;
    int clipID;
    std::unique_ptr<LxAudioClip> clip;
    std::string current;  // the operation being applied, for messages
    // What `copy` or `cut` took: the whole range list at that moment and the stretch.
    std::vector<LxPageRange> clipboard;
    int clipboardStart = -1;
    int clipboardEnd = -1;
};
