#pragma once
// Checks that keep a command from destroying what it reads or what the user
// protected, made before the command does anything. Each throws LxCliFailure
// (what, which file, why) and changes nothing.
//
// Files are compared by identity (device and file number), never by name: an
// output named through a symbolic link or a hard link to the project is the
// project.
#include <string>

class LxCliFileSafety {
public:
    // An output (a WAV file, a picture, a folder of recordings) that is the
    // project itself, lies inside a directory project, or lies in the project's
    // working folder, where the recordings to recover wait. what begins the
    // message ("cannot export to").
    static void RefuseOutput(const std::string& what, const std::string& output, const std::string& project);
    // A file to import that lies inside a directory project: the next save of
    // the project replaces the folder and everything in it.
    static void RefuseInputInside(const std::string& what, const std::string& input, const std::string& project);
    // A project that its owner made read-only, for a command that would change it.
    static void RefuseReadOnly(const std::string& project);
    // The tool works in the system's temporary folder when the project's own
    // folder cannot be written (see LxCliProject); refused when that folder
    // cannot be written either.
    static void RequireWorkingSpace(const std::string& project);

    // Why the system's temporary folder cannot hold the tool's files ("the
    // temporary folder '/x' (TMPDIR) does not exist"), or "" when it can.
    static std::string TemporaryFolderProblem();

private:
    // "the project 'p' (the same file)" when path is the project, "inside ..."
    // when it lies in the directory project or its working folder; "" otherwise.
    static std::string Overlap(const std::string& path, const std::string& project);
};
