#include "LxCliProject.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>
#include <system_error>
#include "LxAudioConstants.h"
#include "LxCliAssertLog.h"
#include "LxCliFailure.h"
#include "LxCliFileSafety.h"
#include "LxCliFileSystem.h"
#include "LxCliRecordings.h"
#include "LxCliSaveStream.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kSavingTag = ".saving-";

// Makes the renames in directory survive a power cut.
void SyncDirectory(const fs::path& directory) { LxFileUtil::SyncDirectory(LxFile(LxString(directory.string()))); }

std::string Why(const std::error_code& error) { return error ? error.message() : std::string(); }

// A save gives the new project the permissions and owner of the one it
// replaces (a first save keeps what the system gives a new file).
void KeepOwnerAndMode(const fs::path& old, const fs::path& replacement) {
    const LxFile oldFile{LxString(old.string())};
    if (oldFile.Exists()) LxFileUtil::CopyOwnerAndMode(oldFile, LxFile(LxString(replacement.string())));
}

}  // namespace

LxCliProject::LxCliProject(LxCliAssertLog& reports) : log(reports) {}

LxCliProject::~LxCliProject() {
    // The controller (and any device it runs) goes before the lock. It deletes
    // its working directory, or keeps it with recordings no save committed.
    controller.reset();
    if (inWorkingFolder) {
        // The folder goes when nothing is left in it (remove takes only an
        // empty folder; another command's directory keeps it).
        std::error_code ignored;
        fs::remove(fs::path(WorkingFolder(path)), ignored);
    }
    Unlock();
}

std::string LxCliProject::WorkingFolder(const std::string& projectPath) {
    fs::path p = fs::path(projectPath);
    if (!p.has_filename()) p = p.parent_path();  // "talk/" names the folder project "talk"
    return (p.parent_path() / ("." + p.filename().string() + ".work")).string();
}

void LxCliProject::MakeController() {
    const std::string folder = WorkingFolder(path);
    try {
        controller = std::make_unique<LxAudioController>(LxFile(LxString(folder)));
        inWorkingFolder = true;
    } catch (const std::exception&) {
        // A folder that cannot be written: a reader still works from the
        // system's temporary folder (record refuses, its save could not succeed).
        controller = std::make_unique<LxAudioController>();
        inWorkingFolder = false;
    }
    // A save is safe only once the new project has taken its name: Save
    // commits the recordings itself then.
    controller->SetCommitRecordingsOnSave(false);
}

void LxCliProject::RemoveLeftovers() {
    RemoveStaleTemporaries();
    LxCliFileSystem::RemoveStalePartFiles(LxCliFileSystem::FolderOf(path));
    interrupted.clear();
    for (LxAudioLeftover& leftover : LxAudioRecovery::FindLeftovers(LxFile(LxString(WorkingFolder(path))))) {
        if (LxCliRecordings::NeedsRecovery(leftover)) {
            interrupted.push_back(std::move(leftover));
        } else if (access == Access::kWrite) {
            // Nothing in it that the project lacks. Only a command that holds
            // the project alone deletes it: then no other command of this
            // project can be making its own working directory in there.
            LxAudioRecovery::DeleteLeftover(leftover);
        }
    }
}

void LxCliProject::Lock() {
    // The lock stands for what is at the path now (after a save, the new
    // project): see LxFileLock::LockWhatIsAt for how each system does it.
    const LxFileLock::Mode mode = access == Access::kWrite ? LxFileLock::Mode::kExclusive : LxFileLock::Mode::kShared;
    // Unavailable: a missing project (Open reports it itself), or a folder
    // that cannot be written (Windows): it is used unlocked, as a reader.
    if (lock.LockWhatIsAt(LxFile(LxString(path)), mode) == LxFileLock::Result::kBusy)
        throw LxCliFailure("project in use", path,
                           "another lxaudio command is working on it; try again when it has finished");
}

void LxCliProject::Unlock() { lock.Unlock(); }

std::string LxCliProject::SaveTarget() const {
    fs::path p(path);
    if (!p.has_filename() && p.has_parent_path()) p = p.parent_path();  // "talk/": the folder "talk"
    return LxFileUtil::ResolveSymbolicLinks(LxFile(LxString(p.string()))).GetPath().str();
}

std::string LxCliProject::TemporaryPath() const {
    fs::path p(SaveTarget());
    const std::string name = "." + p.filename().string() + kSavingTag + std::to_string(LxProcess::CurrentID());
    return (p.parent_path() / name).string();
}

// Where the old directory waits while a new one takes its name, on systems
// that cannot swap two directories in one step.
std::string LxCliProject::ParkingPath() const {
    fs::path p(path);
    return (p.parent_path() / ("." + p.filename().string() + ".old")).string();
}

void LxCliProject::Create(const std::string& projectPath, Form projectForm) {
    path = projectPath;
    form = projectForm;
    access = Access::kWrite;
    std::error_code error;
    if (fs::exists(fs::path(path), error)) throw LxCliFailure("cannot create project", path, "it already exists");
    fs::path parent = fs::path(path).parent_path();
    if (!parent.empty() && !fs::is_directory(parent, error))
        throw LxCliFailure("cannot create project", path, "its folder does not exist");
    MakeController();
    Save();
}

void LxCliProject::Open(const std::string& projectPath, Access wanted, bool announce) {
    path = projectPath;
    access = wanted;
    std::error_code error;
    fs::path p(path);
    if (!fs::exists(p, error)) {
        // A directory project whose save was cut off between its two renames.
        if (fs::is_directory(fs::path(ParkingPath()), error)) {
            fs::rename(fs::path(ParkingPath()), p, error);
            if (error) throw LxCliFailure("cannot recover project", path, Why(error));
            std::fprintf(stderr, "lxaudio: recovered '%s' from an interrupted save\n", path.c_str());
        } else {
            throw LxCliFailure("cannot open project", path, "no such file or directory");
        }
    }
    Lock();
    RemoveLeftovers();
    if (announce && !interrupted.empty())
        std::fprintf(stderr, "lxaudio: %s\n", LxCliRecordings::Notice(path, interrupted).c_str());
    MakeController();
    size_t mark = log.Mark();
    if (fs::is_directory(p, error)) {
        form = Form::kDirectory;
        if (!fs::exists(p / "pcm.lxa1", error) && !fs::exists(p / "integrity.lxi", error))
            throw LxCliFailure("cannot open project", path, "the folder holds no lxaudio project");
        controller->ReadVerifiedFrom(LxFile(LxString(path)), damage);
    } else {
        form = Form::kFile;
        auto in = LxStreamUtil::CreateFileStreamRead(LxFile(LxString(path)));
        if (!in) throw LxCliFailure("cannot open project", path, std::strerror(errno));
        if (in->GetLength() == 0) throw LxCliFailure("cannot open project", path, "the file is empty");
        // The audio is read where it lies in the project, not copied into the
        // working directory: a save writes a new file beside it and renames it
        // over the project, and the store goes on reading the file it opened.
        // Where a rename cannot replace an open file, every command copies: a
        // reader holding the project open would make another command's save fail.
        if (LxFileUtil::CanRenameOverOpenFile()) {
            in.reset();
            controller->ReadVerifiedInPlace(LxFile(LxString(path)), damage);
        } else {
            controller->ReadVerifiedFrom(in.get(), damage);
        }
    }
    if (!damage.loaded) {
        std::string why = "the project is damaged or is not an lxaudio project";
        if (!damage.damage.empty()) why += " (" + LxAudioDamageReport::Describe(damage.damage.front()) + ")";
        throw LxCliFailure("cannot open project", path, why);
    }
    if (damage.IsDamaged()) {
        // What the engine said while reading damaged bytes is in the report.
        log.Forget(mark);
        if (access == Access::kWrite) {
            throw LxCliFailure("project", path,
                               "damaged; not changed (" + DamageLine() +
                                   "); 'lxaudio info' lists the damage, 'lxaudio salvage' copies what is intact",
                               LxCliFailure::kExitDamaged);
        }
        if (announce)
            std::fprintf(stderr, "lxaudio: warning: project '%s' is damaged (%s); only its intact clips can be used\n",
                         path.c_str(), DamageLine().c_str());
        return;
    }
    if (log.CountSince(mark) > 0) {
        throw LxCliFailure("cannot open project", path,
                           "the project is damaged or is not an lxaudio project (" + log.Summary(mark) + ")");
    }
    Verify();
}

std::string LxCliProject::DamageLine() const {
    std::string line;
    const size_t shown = std::min<size_t>(damage.damage.size(), 2);
    for (size_t i = 0; i < shown; ++i)
        line += (i ? "; " : "") + LxAudioDamageReport::Describe(damage.damage[i]);
    if (damage.damage.size() > shown) line += "; " + std::to_string(damage.damage.size() - shown) + " more";
    if (!damage.damagedClips.empty()) {
        line += "; damaged clip" + std::string(damage.damagedClips.size() > 1 ? "s" : "");
        bool first = true;
        for (const auto& entry : damage.damagedClips) {
            line += (first ? " " : ", ") + std::to_string(entry.first);
            first = false;
        }
    } else {
        line += "; no clip is damaged";
    }
    return line;
}

// The store's own load checks that the members fit the stream; the
// controller's Verify checks that what they hold makes sense: the reserved
// silent pages are where every store has them, and every clip lists pages that
// exist. Any report the engine raised on the way is damage too.
void LxCliProject::Verify() {
    auto damaged = [this](const std::string& why) {
        throw LxCliFailure("cannot open project", path, "the project is damaged (" + why + ")");
    };
    size_t mark = log.Mark();
    std::string problem;
    if (!controller->Verify(problem)) damaged(problem);
    if (log.CountSince(mark) > 0) damaged(log.Summary(mark));
}

void LxCliProject::Save() {
    // Renaming over a file needs no write permission on it: a project its owner
    // made read-only is protected here.
    LxCliFileSafety::RefuseReadOnly(path);
    RemoveStaleTemporaries();
    if (form == Form::kFile) {
        SaveAsFile();
    } else {
        SaveAsDirectory();
    }
    // Hold the new project as the old one was held, until the command ends
    // (the save itself is done: a reader that got in first only ends that early).
    if (lock.IsLocked()) {
        try {
            Lock();
        } catch (const LxCliFailure&) {
            Unlock();
        }
    }
}

void LxCliProject::SaveAsFile() {
    const std::string temporary = TemporaryPath();
    LxFile temporaryFile{LxString(temporary)};
    auto fail = [&](const std::string& why) {
        temporaryFile.Delete();
        throw LxCliFailure("cannot save project", path, why + "; the previous version is unchanged");
    };
    size_t mark = log.Mark();
    {
        auto out = LxStreamUtil::CreateFileStreamReadWrite(temporaryFile, kLxStreamWrite, kLxStreamBufferArgument, kLxStreamBufferArgument);
        if (!out) fail(std::string("cannot write next to it (") + std::strerror(errno) + ")");
        LxCliSaveStream stream(std::move(out));
        // The disk starts on the new project while it is written; the Sync below waits for the rest.
        stream.SetWriteBehind(true);
        bool written = controller->WriteVerifiedTo(&stream);
        if (!written || stream.WriteFailed()) {
            std::string detail = log.Summary(mark);
            fail("writing failed (disk full?)" + (detail.empty() ? std::string() : " (" + detail + ")"));
        }
        if (!stream.Sync()) fail("the new file could not be forced to disk");
        stream.Close();
    }
    const std::string target = SaveTarget();
    KeepOwnerAndMode(target, temporary);
    if (!temporaryFile.RenameTo(LxFile(LxString(target)))) fail("the new file could not replace the old one");
    SyncDirectory(fs::path(target).parent_path());
    controller->CommitRecordings();
}

void LxCliProject::SaveAsDirectory() {
    const fs::path target(SaveTarget());
    const fs::path temporary(TemporaryPath());
    std::error_code error;
    auto fail = [&](const std::string& why) {
        std::error_code ignored;
        fs::remove_all(temporary, ignored);
        throw LxCliFailure("cannot save project", path, why + "; the previous version is unchanged");
    };
    fs::remove_all(temporary, error);
    if (!fs::create_directory(temporary, error)) fail("cannot write next to it (" + Why(error) + ")");
    size_t mark = log.Mark();
    if (!controller->WriteVerifiedTo(LxFile(LxString(temporary.string())), false, nullptr) ||
        log.CountSince(mark) > 0) {
        std::string detail = log.Summary(mark);
        fail("writing failed (disk full?)" + (detail.empty() ? std::string() : " (" + detail + ")"));
    }
    // Force every chunk file to disk before the new folder takes the name, with
    // the permissions of the file it replaces (or of the old page table).
    KeepOwnerAndMode(target, temporary);
    for (const fs::directory_entry& entry : fs::directory_iterator(temporary, error)) {
        const fs::path old = target / entry.path().filename();
        std::error_code missing;
        KeepOwnerAndMode(fs::exists(old, missing) ? old : target / "pcm.lxa1", entry.path());
        auto file = LxStreamUtil::CreateFileStreamReadWrite(LxFile(LxString(entry.path().string())),
                                                            kLxStreamReadWrite, kLxStreamBufferArgument, kLxStreamBufferArgument);
        if (!file || !file->Sync()) fail("the new files could not be forced to disk");
    }
    if (error) fail("cannot list the new files (" + Why(error) + ")");
    SyncDirectory(temporary);
    if (LxCliSaveStream::PausePoint() >= 0) LxCliSaveStream::Pause(0);
    if (!fs::exists(target, error)) {
        fs::rename(temporary, target, error);
        if (error) fail("the new folder could not take its name (" + Why(error) + ")");
    } else if (LxFileUtil::ExchangeDirectories(LxFile(LxString(temporary.string())),
                                               LxFile(LxString(target.string())))) {
        fs::remove_all(temporary, error);
    } else {
        // Two renames; an interruption between them is repaired by Open.
        const fs::path parking(target.parent_path() / ("." + target.filename().string() + ".old"));
        fs::remove_all(parking, error);
        fs::rename(target, parking, error);
        if (error) fail("the old folder could not be moved aside (" + Why(error) + ")");
        fs::rename(temporary, target, error);
        if (error) {
            std::error_code ignored;
            fs::rename(parking, target, ignored);
            fail("the new folder could not take its name (" + Why(error) + ")");
        }
        fs::remove_all(parking, error);
    }
    SyncDirectory(target.parent_path());
    controller->CommitRecordings();
}

void LxCliProject::RemoveStaleTemporaries() const {
    // Saves are made beside the project, or beside what its symbolic link leads to.
    fs::path p(SaveTarget());
    fs::path parent = p.parent_path().empty() ? fs::path(".") : p.parent_path();
    const std::string prefix = "." + p.filename().string() + kSavingTag;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(parent, error)) {
        std::string name = entry.path().filename().string();
        if (name.rfind(prefix, 0) != 0) continue;
        int pid = std::atoi(name.c_str() + prefix.size());
        if (pid == LxProcess::CurrentID() || !LxProcess::IsRunning(pid)) {
            std::error_code ignored;
            fs::remove_all(entry.path(), ignored);
        }
    }
}

bool LxCliProject::HasClip(int clipID) {
    std::list<int> ids;
    controller->GetListOfClipIDs(ids);
    for (int id : ids) {
        if (id == clipID) return true;
    }
    return false;
}

void LxCliProject::RequireClip(int clipID) {
    // In a damaged project only the clips the check found intact are used.
    const std::vector<int>& intact = damage.intactClips;
    if (damage.IsDamaged() && std::find(intact.begin(), intact.end(), clipID) == intact.end()) {
        auto damaged = damage.damagedClips.find(clipID);
        const std::string why =
            damaged != damage.damagedClips.end() ? damaged->second : "it is not among the project's intact clips";
        throw LxCliFailure("clip " + std::to_string(clipID) + " is damaged in project", path,
                           why + "; 'lxaudio salvage' copies what is intact", LxCliFailure::kExitDamaged);
    }
    if (!HasClip(clipID)) throw LxCliFailure("no clip " + std::to_string(clipID) + " in project", path, "");
}

std::unique_ptr<LxAudioClip> LxCliProject::LoadClip(int clipID) {
    RequireClip(clipID);
    return controller->GetClip(clipID);
}
