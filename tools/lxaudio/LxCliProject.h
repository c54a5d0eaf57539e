#pragma once
// One lxaudio project on disk and the controller that holds it while a command
// runs. A project is either one file (the whole store in one stream, usually
// "*.lxp") or a directory of chunk files. Saving never overwrites the project in
// place: the new state is written next to it, forced to disk, and only then
// renamed over the old one, so a crash, a kill or a full disk at any moment
// leaves either the old project or the new one, never a mixture.
#include <memory>
#include <string>
#include "LxAudioCore.h"

class LxCliAssertLog;

class LxCliProject {
public:
    enum class Form { kFile, kDirectory };
    // Commands that change a project hold it alone; readers share it. A
    // project held by another lxaudio in a way that conflicts is refused at
    // once, so that two commands never save over each other's work.
    enum class Access { kRead, kWrite };

    // log receives the engine's reports while the project loads and saves; its
    // summary goes into the error line when one of them fails.
    explicit LxCliProject(LxCliAssertLog& log);
    ~LxCliProject();
    LxCliProject(const LxCliProject&) = delete;
    LxCliProject& operator=(const LxCliProject&) = delete;

    // A new, empty project, saved at once. Fails when path exists.
    void Create(const std::string& path, Form form);
    // Loads an existing project (the form is what is found on disk) and checks
    // that every clip it lists can be read. Fails with a clear message otherwise.
    void Open(const std::string& path, Access access);
    // Writes the project atomically (see above).
    void Save();

    LxAudioController& Controller() { return *controller_; }
    const std::string& Path() const { return path_; }
    Form GetForm() const { return form_; }

    // The clip with this ID, or a failure naming the project ("no clip 7 in ...").
    std::unique_ptr<LxAudioClip> LoadClip(int clipID);
    bool HasClip(int clipID);

private:
    void SaveAsFile();
    void SaveAsDirectory();
    void Verify();
    // Leftovers of saves that were killed, by processes no longer running.
    void RemoveStaleTemporaries() const;
    std::string TemporaryPath() const;
    // Takes the lock of what is at path_ now (again after a save replaced it).
    void Lock();
    void Unlock();
    std::string ParkingPath() const;

    LxCliAssertLog& log_;
    std::unique_ptr<LxAudioController> controller_;
    std::string path_;
    Form form_ = Form::kFile;
    Access access_ = Access::kRead;
    int lockHandle_ = -1;
};
