#pragma once
// One lxaudio project on disk and the controller that holds it while a command
// runs. A project is either one file (the whole store in one stream, usually
// "*.lxp") or a directory of chunk files. Saving never overwrites the project in
// place: the new state is written next to it, forced to disk, and only then
// renamed over the old one, so a crash, a kill or a full disk at any moment
// leaves either the old project or the new one, never a mixture.
//
// The controller works in a hidden folder beside the project, ".NAME.work/"
// (on the project's own file system, never in the system's temporary folder):
// each command's controller makes its working directory in there, and the
// capture journals of a recording live in it until a save has put the
// recording in the project. What a killed or failed command leaves in there is
// a leftover: with recordings, `lxaudio recover` adds them to the project;
// without, it holds nothing the project lacks and the next command that
// changes the project deletes it. Only when that folder cannot be made (a
// read-only folder) does the controller work in the system's temporary folder.
#include <memory>
#include <string>
#include <vector>
#include "LxAudioCore.h"
#include "LxAudioRecovery.h"
#include "LxPublic/LxFileLock.h"

class LxCliAssertLog;

class LxCliProject {
public:
    enum class Form { kFile, kDirectory };
    // Commands that change a project hold it alone; readers share it. A
    // project held by another lxaudio in a way that conflicts is refused at
    // once, so that two commands never save over each other's work.
    enum class Access { kRead, kWrite };

    // reports receives the engine's reports while the project loads and saves;
    // its summary goes into the error line when one of them fails.
    explicit LxCliProject(LxCliAssertLog& reports);
    ~LxCliProject();
    LxCliProject(const LxCliProject&) = delete;
    LxCliProject& operator=(const LxCliProject&) = delete;

    // A new, empty project, saved at once. Fails when projectPath exists.
    void Create(const std::string& projectPath, Form projectForm);
    // Loads an existing project (the form is what is found on disk) and checks
    // it against its integrity record (or, for a project saved without one,
    // its structure). A damaged project is refused for writing ("damaged; not
    // changed", exit 4), so that damage never becomes permanent; for reading it
    // is opened with a warning on stderr, and its damaged clips are refused one
    // by one (LoadClip). Fails with a clear message when it cannot be read.
    // Before it loads, it removes what killed commands left beside the project
    // (see RemoveLeftovers) and, unless announce is false, prints one line on
    // stderr when interrupted recordings wait to be recovered.
    void Open(const std::string& projectPath, Access wanted, bool announce = true);
    // Writes the project atomically (see above); once the new project is in
    // place, the recordings it holds are committed (their journals go).
    void Save();

    // The hidden folder beside a project where its controllers work.
    static std::string WorkingFolder(const std::string& projectPath);
    // False when the controller had to work in the system's temporary folder.
    bool HasWorkingFolder() const { return inWorkingFolder; }
    // Leftovers with recordings to recover, as found when the project was opened.
    const std::vector<LxAudioLeftover>& Interrupted() const { return interrupted; }

    LxAudioController& Controller() { return *controller; }
    const std::string& Path() const { return path; }
    Form GetForm() const { return form; }

    // The clip with this ID, or a failure naming the project ("no clip 7 in
    // ...", or "clip 7 is damaged" with why).
    std::unique_ptr<LxAudioClip> LoadClip(int clipID);
    bool HasClip(int clipID);
    // Throws the failure LoadClip would when the clip is missing or damaged.
    void RequireClip(int clipID);
    // What the load found; no damage when the project is intact.
    const LxAudioDamageReport& Damage() const { return damage; }
    // The first findings and the damaged clips, in one line.
    std::string DamageLine() const;

private:
    void MakeController();
    // Part files of dead writers in the project's folder, saves of dead
    // processes, and (when the project is held alone) leftover working
    // directories without recordings.
    void RemoveLeftovers();
    void SaveAsFile();
    void SaveAsDirectory();
    void Verify();
    // Leftovers of saves that were killed, by processes no longer running.
    void RemoveStaleTemporaries() const;
    // Where a save writes: the project, or what its symbolic link leads to (the
    // link stays a link). The new project is made beside it.
    std::string SaveTarget() const;
    std::string TemporaryPath() const;
    // Takes the lock of what is at path now (again after a save replaced it).
    void Lock();
    void Unlock();
    std::string ParkingPath() const;

    LxCliAssertLog& log;
    std::unique_ptr<LxAudioController> controller;
    std::string path;
    Form form = Form::kFile;
    Access access = Access::kRead;
    LxFileLock lock;
    bool inWorkingFolder = false;
    std::vector<LxAudioLeftover> interrupted;
    LxAudioDamageReport damage;
};
