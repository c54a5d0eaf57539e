#include "LxCliFileSafety.h"

#include <filesystem>
#include <system_error>
#include "LxAudioCore.h"
#include "LxCliFailure.h"
#include "LxCliProject.h"

namespace fs = std::filesystem;

namespace {

bool SameFile(const fs::path& a, const std::string& b) {
    return LxFileUtil::IsSameFile(LxFile(LxString(a.string())), LxFile(LxString(b)));
}

// The project without a trailing separator ("talk/" names the folder "talk").
std::string Plain(const std::string& project) {
    fs::path p(project);
    if (!p.has_filename() && p.has_parent_path()) p = p.parent_path();
    return p.string();
}

}  // namespace

std::string LxCliFileSafety::Overlap(const std::string& path, const std::string& project) {
    const std::string plain = Plain(project);
    const std::string working = LxCliProject::WorkingFolder(plain);
    std::error_code error;
    // ".." and symbolic links resolved where the path exists, so that every
    // step up is a real parent folder.
    fs::path at = fs::weakly_canonical(fs::path(path), error);
    if (error) at = fs::absolute(fs::path(path), error);
    if (SameFile(fs::path(path), plain) || SameFile(at, plain)) return "it is the project '" + project + "' (the same file)";
    for (fs::path folder = at.parent_path(); !folder.empty(); folder = folder.parent_path()) {
        if (SameFile(folder, plain)) return "it lies inside the project '" + project + "'";
        if (SameFile(folder, working))
            return "it lies inside the project's working folder '" + working + "', where recordings wait to be recovered";
        if (folder == folder.root_path()) break;
    }
    if (SameFile(at, working)) return "it is the project's working folder '" + working + "'";
    return "";
}

void LxCliFileSafety::RefuseOutput(const std::string& what, const std::string& output, const std::string& project) {
    const std::string overlap = Overlap(output, project);
    if (!overlap.empty()) throw LxCliFailure(what, output, overlap + "; nothing was changed");
}

void LxCliFileSafety::RefuseInputInside(const std::string& what, const std::string& input, const std::string& project) {
    std::error_code error;
    if (!fs::is_directory(fs::path(Plain(project)), error)) return;
    const std::string overlap = Overlap(input, project);
    if (overlap.empty()) return;
    throw LxCliFailure(what, input,
                       overlap + ", whose next save replaces everything in it; move the file out first. Nothing was changed");
}

void LxCliFileSafety::RefuseReadOnly(const std::string& project) {
    if (LxFileUtil::IsReadOnly(LxFile(LxString(Plain(project)))))
        throw LxCliFailure("cannot change project", project, "read-only; not changed");
}

std::string LxCliFileSafety::TemporaryFolderProblem() {
    const std::string folder = LxFileUtil::GetTemporaryDirectoryName().str();
    const LxFile file{LxString(folder)};
    if (LxFileUtil::IsWritableDirectory(file)) return "";
    const std::string named = "the temporary folder '" + folder + "' (TMPDIR)";
    if (folder.empty()) return "no temporary folder is set (TMPDIR is empty)";
    if (!file.Exists()) return named + " does not exist";
    if (!file.IsDirectory()) return named + " is not a folder";
    return named + " cannot be written";
}

void LxCliFileSafety::RequireWorkingSpace(const std::string& project) {
    const std::string problem = TemporaryFolderProblem();
    if (problem.empty()) return;
    const fs::path folder = fs::path(LxCliProject::WorkingFolder(Plain(project))).parent_path();
    const LxFile parent{LxString(folder.empty() ? std::string(".") : folder.string())};
    // A missing folder is the project's own problem, which opening it names.
    if (!parent.IsDirectory() || LxFileUtil::IsWritableDirectory(parent)) return;
    throw LxCliFailure("cannot work on project", project,
                       "its folder cannot be written, so the tool would work in the temporary folder, but " + problem);
}
