#include "LxShortAudioPlayer.h"

#if defined(_WIN32)
#include <windows.h>
#include <mmsystem.h>

#include <string>

LxShortAudioPlayer::LxShortAudioPlayer() = default;

LxShortAudioPlayer::~LxShortAudioPlayer() { Stop(); }

bool LxShortAudioPlayer::Play(const LxFile& soundFile, bool wait) {
    const std::string& path = soundFile.GetPath().str();
    int wide = MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, nullptr, 0);
    if (wide <= 1) return false;
    std::wstring name(static_cast<size_t>(wide), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, name.data(), wide);
    DWORD flags = SND_FILENAME | SND_NODEFAULT | (wait ? SND_SYNC : SND_ASYNC);
    return PlaySoundW(name.c_str(), nullptr, flags) != FALSE;
}

void LxShortAudioPlayer::Stop() { PlaySoundW(nullptr, nullptr, 0); }

#else

#include "LxAudioController.h"
#include "LxWAVImporter.h"

LxShortAudioPlayer::LxShortAudioPlayer() = default;

LxShortAudioPlayer::~LxShortAudioPlayer() {
    Stop();
    // The controller's destructor lets its stop handler finish first.
    controller.reset();
}

void LxShortAudioPlayer::OnPlayback(LxCallBack& callBack, void* context) {
    auto* self = static_cast<LxShortAudioPlayer*>(context);
    std::lock_guard<std::mutex> lock(self->mutex);
    if (callBack.GetKind() == kLxCallBackPlaybackStarted) self->started = true;
    if (callBack.GetKind() == kLxCallBackPlaybackStopped) {
        self->ended = true;
        self->stopped.notify_all();
    }
}

int LxShortAudioPlayer::ClipOf(const LxFile& soundFile) {
    auto known = clips.find(soundFile.GetPath());
    if (known != clips.end()) return known->second;
    if (!controller) controller = std::make_unique<LxAudioController>();
    std::unique_ptr<LxWAVImporter> importer = controller->GetWAVImporter(nullptr, nullptr, false);
    if (!soundFile.Exists() || !importer->CanImport(soundFile)) return -1;
    int clipID = importer->Import(soundFile);
    if (clipID < 1) return -1;
    clips[soundFile.GetPath()] = clipID;
    return clipID;
}

bool LxShortAudioPlayer::Play(const LxFile& soundFile, bool wait) {
    Stop();
    int clipID = ClipOf(soundFile);
    if (clipID == -1) return false;
    {
        std::lock_guard<std::mutex> lock(mutex);
        playing = clipID;
        started = false;
        ended = false;
    }
    controller->StartPlayBackOnDefaultDevice(clipID, 1, -1, &LxShortAudioPlayer::OnPlayback, this);
    std::unique_lock<std::mutex> lock(mutex);
    if (!started) {
        // No output: the playback stays entered until stopped.
        lock.unlock();
        Stop();
        return false;
    }
    if (wait) stopped.wait(lock, [this] { return ended; });
    return true;
}

void LxShortAudioPlayer::Stop() {
    int clipID = -1;
    {
        std::lock_guard<std::mutex> lock(mutex);
        clipID = playing;
        playing = -1;
    }
    if (clipID != -1 && controller) controller->StopPlayBack(clipID);
}

#endif
