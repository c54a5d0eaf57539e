#pragma once
// A playback device: plays a playback source and, at the end of its audio,
// calls its stop function with the source's key (the controller passes a
// function that asks its stop handler thread to stop the playback). Owns the
// source.
#include <memory>
#include "LxAudioPlaybackSource.h"
#include "LxPublic/LxCallBack.h"

// Called by a device at the end of its audio: (key of the playback, stop context).
using LxStopPlayBackFunction = void (*)(int clipID, void* context);

class LxAudioPlayBackDevice {
public:
    LxAudioPlayBackDevice(LxStopPlayBackFunction stopFunction, void* stopContext);
    virtual ~LxAudioPlayBackDevice();
    LxAudioPlayBackDevice(const LxAudioPlayBackDevice&) = delete;
    LxAudioPlayBackDevice& operator=(const LxAudioPlayBackDevice&) = delete;

    virtual bool Start(LxCallBackFunction callback, void* context) = 0;
    // Stops, releases the device and reports kind 36 (whenever a callback is set).
    virtual bool Stop() = 0;

    void SetSource(std::unique_ptr<LxAudioPlaybackSource> newSource) { source = std::move(newSource); }
    int GetFramesWritten() const { return framesWritten; }

protected:
    // The source's key, or -1 without a source.
    int SourceClipID() const { return source ? source->GetClipID() : -1; }

    std::unique_ptr<LxAudioPlaybackSource> source;
    LxCallBackFunction callback = nullptr;
    void* context = nullptr;
    LxStopPlayBackFunction stopFunction;
    void* stopContext;
    // Frames handed to the driver since Start.
    int framesWritten = 0;
};
