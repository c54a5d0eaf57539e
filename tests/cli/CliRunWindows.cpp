// CliRun on Windows: the tool is started with CreateProcessW, its stdout and
// stderr are files opened here and inherited by the child, its stdin is the
// NUL device (or the file named by input), and its temporary folders go inside
// the test's folder (TMP and TEMP). Its output is read back with LF line ends.
// A process that ends by an exception (an access violation, say) is reported
// like a POSIX process ended by a signal: exitCode -1, signal set.
#include "CliRun.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <csignal>
#include <cwctype>
#include <filesystem>
#include <map>
#include <mutex>

namespace {

// The tool writes text mode output, whose line ends are CR LF on Windows: the
// tests compare lines as they are on every system.
std::string Lines(std::string text) {
    for (size_t at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n", at)) text.erase(at, 1);
    return text;
}

std::wstring Wide(const std::string& utf8) {
    if (utf8.empty()) return std::wstring();
    int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), wide.data(), length);
    return wide;
}

// One argument as the C runtime's command-line parser reads it back: quoted
// when it holds blanks or quotes, with the backslashes before a quote doubled.
std::wstring Quote(const std::wstring& arg) {
    if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) return arg;
    std::wstring out = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : arg) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        out.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        out.push_back(c);
    }
    out.append(backslashes * 2, L'\\');
    out.push_back(L'"');
    return out;
}

// Environment variable names are not case-sensitive on Windows.
struct NameLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const {
        size_t n = std::min(a.size(), b.size());
        for (size_t i = 0; i < n; ++i) {
            wint_t x = std::towupper(a[i]), y = std::towupper(b[i]);
            if (x != y) return x < y;
        }
        return a.size() < b.size();
    }
};

// This process's environment with the settings ("NAME=value") on top, as the
// block CreateProcessW takes: sorted by name, each entry ended by a NUL, the
// whole ended by another.
std::wstring EnvironmentBlock(const std::vector<std::string>& settings) {
    std::map<std::wstring, std::wstring, NameLess> variables;
    std::vector<std::wstring> drives;  // "=C:=C:\..." entries: the current folder of each drive
    if (wchar_t* block = GetEnvironmentStringsW()) {
        for (const wchar_t* entry = block; *entry != L'\0'; entry += std::wcslen(entry) + 1) {
            std::wstring text(entry);
            size_t equals = text.find(L'=', 1);
            if (text[0] == L'=' || equals == std::wstring::npos) {
                drives.push_back(text);
            } else {
                variables[text.substr(0, equals)] = text.substr(equals + 1);
            }
        }
        FreeEnvironmentStringsW(block);
    }
    for (const std::string& setting : settings) {
        std::wstring text = Wide(setting);
        size_t equals = text.find(L'=');
        if (equals != std::wstring::npos) variables[text.substr(0, equals)] = text.substr(equals + 1);
    }
    std::wstring block;
    for (const std::wstring& drive : drives) block += drive + L'\0';
    for (const auto& [name, value] : variables) block += name + L'=' + value + L'\0';
    block += L'\0';
    return block;
}

HANDLE Inheritable(const std::wstring& path, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherit{};
    inherit.nLength = sizeof inherit;
    inherit.bInheritHandle = TRUE;
    return CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherit,
                       disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Started processes not yet waited for, by process ID.
std::mutex gMutex;
std::map<pid_t, HANDLE> gProcesses;

}  // namespace

pid_t CliRun::Start(const std::vector<std::string>& args, const std::vector<std::string>& env,
                    long fileSizeLimit) const {
    // Windows has no per-process file size limit: the tests that need one do not run here.
    (void)fileSizeLimit;
    const std::string out = Path(".cli-stdout");
    const std::string err = Path(".cli-stderr");
    const std::string temporary = dir_ + "/.tmp";
    std::error_code ignored;
    std::filesystem::create_directory(temporary, ignored);

    std::wstring exe = Wide(LXAUDIO_EXE);
    for (wchar_t& c : exe) c = c == L'/' ? L'\\' : c;
    std::wstring commandLine = Quote(exe);
    for (const std::string& arg : args) commandLine += L' ' + Quote(Wide(arg));
    std::vector<std::string> settings = {"TMP=" + temporary, "TEMP=" + temporary};
    settings.insert(settings.end(), env.begin(), env.end());
    std::wstring environment = EnvironmentBlock(settings);

    // Fresh output files, so that WaitForError never reads an earlier run's output.
    HANDLE input = Inheritable(this->input.empty() ? std::wstring(L"NUL") : Wide(this->input), GENERIC_READ, OPEN_EXISTING);
    HANDLE output = Inheritable(Wide(out), GENERIC_WRITE, CREATE_ALWAYS);
    HANDLE error = Inheritable(Wide(err), GENERIC_WRITE, CREATE_ALWAYS);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = output;
    startup.hStdError = error;
    PROCESS_INFORMATION process{};
    BOOL started = output != INVALID_HANDLE_VALUE && error != INVALID_HANDLE_VALUE &&
                   CreateProcessW(exe.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                                  CREATE_UNICODE_ENVIRONMENT, environment.data(), Wide(dir_).c_str(), &startup,
                                  &process);
    for (HANDLE handle : {input, output, error}) {
        if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
    }
    if (!started) return -1;
    CloseHandle(process.hThread);
    std::lock_guard<std::mutex> lock(gMutex);
    gProcesses[static_cast<pid_t>(process.dwProcessId)] = process.hProcess;
    return static_cast<pid_t>(process.dwProcessId);
}

CliResult CliRun::Wait(pid_t pid) const {
    CliResult result;
    HANDLE process = nullptr;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        auto found = gProcesses.find(pid);
        if (found != gProcesses.end()) {
            process = found->second;
            gProcesses.erase(found);
        }
    }
    if (process != nullptr) {
        DWORD code = 0;
        if (WaitForSingleObject(process, INFINITE) == WAIT_OBJECT_0 && GetExitCodeProcess(process, &code)) {
            // NTSTATUS error codes (0xC0000000 and up) are exceptions that ended the process.
            if (code >= 0xC0000000u) {
                result.signal = code == 0xC0000005u ? SIGSEGV : SIGABRT;
            } else {
                result.exitCode = static_cast<int>(code);
            }
        }
        CloseHandle(process);
    }
    result.out = Lines(Slurp(Path(".cli-stdout")));
    result.err = Lines(Slurp(Path(".cli-stderr")));
    return result;
}

void CliRun::Kill(pid_t pid) const {
    std::lock_guard<std::mutex> lock(gMutex);
    auto found = gProcesses.find(pid);
    if (found != gProcesses.end()) TerminateProcess(found->second, 1);
}
