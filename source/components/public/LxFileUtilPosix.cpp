// LxFileUtil's functions that differ between systems: the POSIX ones.
#include "LxPublic/LxFileUtil.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool StatOf(const LxFile& file, struct stat& info) {
    return !file.GetPath().IsEmpty() && ::stat(file.GetPath().c_str(), &info) == 0;
}

int OpenRetrying(const char* path, int flags) {
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Writes all of bytes, through short writes and interruptions.
bool WriteAll(int fd, const char* bytes, ssize_t size) {
    while (size > 0) {
        ssize_t put = ::write(fd, bytes, static_cast<size_t>(size));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        bytes += put;
        size -= put;
    }
    return true;
}

}  // namespace

LxString LxFileUtil::GetTemporaryDirectoryName() {
    // The variables, in the order std::filesystem::temp_directory_path reads them.
    for (const char* name : {"TMPDIR", "TMP", "TEMP", "TEMPDIR"}) {
        if (const char* value = std::getenv(name)) return LxString(value);
    }
    return LxString("/tmp");
}

bool LxFileUtil::IsDeviceOrPipe(const LxFile& file) {
    struct stat info;
    if (!StatOf(file, info)) return false;
    return S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode) || S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode);
}

bool LxFileUtil::IsWritableDirectory(const LxFile& directory) {
    struct stat info;
    return StatOf(directory, info) && S_ISDIR(info.st_mode) &&
           ::access(directory.GetPath().c_str(), W_OK | X_OK) == 0;
}

bool LxFileUtil::IsReadOnly(const LxFile& file) {
    struct stat info;
    if (!StatOf(file, info)) return false;
    // No write bit at all is the owner's "do not change", which even the
    // superuser (whom access() lets write anything) is held to here.
    if ((info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) return true;
    return ::access(file.GetPath().c_str(), W_OK) != 0 && (errno == EACCES || errno == EPERM || errno == EROFS);
}

bool LxFileUtil::CopyOwnerAndMode(const LxFile& from, const LxFile& to) {
    struct stat info;
    if (!StatOf(from, info) || to.GetPath().IsEmpty()) return false;
    const char* path = to.GetPath().c_str();
    bool copied = true;
    // The owner first: giving a file away clears its set-user and set-group bits.
    if (::chown(path, info.st_uid, info.st_gid) != 0) {
        copied = false;
        // Only the superuser gives files away; the group is the owner's to choose.
        if (::chown(path, static_cast<uid_t>(-1), info.st_gid) != 0) copied = false;
    }
    if (::chmod(path, info.st_mode & 07777) != 0) copied = false;
    return copied;
}

bool LxFileUtil::CopyFileIntoDevice(const LxFile& source, const LxFile& target) {
    if (source.GetPath().IsEmpty() || target.GetPath().IsEmpty()) return false;
    const int in = OpenRetrying(source.GetPath().c_str(), O_RDONLY);
    if (in < 0) return false;
    // A named pipe blocks here until something reads it, as a shell's > would.
    const int out = OpenRetrying(target.GetPath().c_str(), O_WRONLY);
    if (out < 0) {
        ::close(in);
        return false;
    }
    // A pipe whose reader has gone gives EPIPE here instead of ending the
    // process with SIGPIPE: the caller cleans up and says so. The signal is
    // blocked on this thread only, and one it raised is taken back.
    sigset_t pipeSignal, previous;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    const bool alreadyPending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    bool done = true, brokenPipe = false;
    char buffer[1 << 16];
    for (;;) {
        ssize_t got = ::read(in, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) done = false;
        if (got <= 0) break;
        if (!WriteAll(out, buffer, got)) {
            done = false;
            brokenPipe = errno == EPIPE;
            break;
        }
    }
    ::close(in);
    if (::close(out) != 0) done = false;
    if (brokenPipe && !alreadyPending) {
        const timespec now{0, 0};
        sigtimedwait(&pipeSignal, nullptr, &now);
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return done;
}

bool LxFileUtil::SyncDirectory(const LxFile& directory) {
    const char* path = directory.GetPath().IsEmpty() ? "." : directory.GetPath().c_str();
    const int fd = OpenRetrying(path, O_RDONLY | O_DIRECTORY);
    if (fd < 0) return false;
    const bool synced = ::fsync(fd) == 0;
    ::close(fd);
    return synced;
}

bool LxFileUtil::ExchangeDirectories(const LxFile& a, const LxFile& b) {
    if (a.GetPath().IsEmpty() || b.GetPath().IsEmpty()) return false;
#if defined(__linux__) && defined(RENAME_EXCHANGE)
    // glibc names it in <stdio.h> (2.28 and later); older systems, other
    // kernels and file systems without it take the caller's two renames.
    return ::renameat2(AT_FDCWD, a.GetPath().c_str(), AT_FDCWD, b.GetPath().c_str(), RENAME_EXCHANGE) == 0;
#else
    return false;
#endif
}

// rename() replaces the name; an open descriptor keeps the file it was opened on.
bool LxFileUtil::CanRenameOverOpenFile() { return true; }
