#pragma once
// The in-memory wave driver: devices without a sound card. Output devices
// record every byte they play; input devices record from a script of PCM fed
// by the caller, and wait (as a silent microphone would not) while the script
// is empty. Buffers complete at once, or paced at a multiple of real time, in
// the order they were queued. Any driver call can be made to fail. Tests reach
// the one instance through Instance(); hosts without a sound card select it
// with LXAUDIO_WAVE_DRIVER=simulated, and then hear nothing and record nothing.
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>
#include "LxWaveDriver.h"

// The driver calls that a test can make fail.
enum class LxWaveCall : int {
    OpenInput,
    OpenOutput,
    Prepare,
    Unprepare,
    Queue,
    Start,
    Stop,
    Reset,
    Position,
    Close,
    OpenMixer,
    SelectLine,
    SetLineVolume,
};

class LxSimulatedWaveDevice;

class LXPUBLIC_API LxSimulatedWaveDriver : public LxWaveDriver {
public:
    static LxSimulatedWaveDriver& Instance();

    const char* GetName() const override { return "simulated"; }
    int OpenInput(unsigned deviceIndex, const LxWaveFormat& format, LxWaveEvent& event,
                  std::unique_ptr<LxWaveDevice>& device) override;
    int OpenOutput(const LxWaveFormat& format, LxWaveEvent& event, std::unique_ptr<LxWaveDevice>& device) override;
    std::unique_ptr<LxWaveMixer> OpenInputMixer(LxWaveDevice& input) override;
    std::unique_ptr<LxWaveMixer> OpenInputMixer(unsigned deviceIndex) override;
    void GetInputDevices(std::vector<LxWaveInputDeviceInfo>& devices) override;
    int GetOutputVolume(float& volume) override;
    int SetOutputVolume(float volume) override;

    // --- scripting ---------------------------------------------------------------
    // Back to the initial state: instant completion, no failures, no input, no
    // recorded output, the default device list. Devices still open keep running.
    void ResetSimulation();
    // 0: buffers complete as soon as they are queued; otherwise a buffer of d
    // seconds takes d / timesRealTime seconds.
    void SetSpeed(double timesRealTime);
    // Input buffers are handed back in groups of this many (marked done together,
    // last queued first, with one signal), as a driver that services its
    // interrupts late would. 1 (the default) hands back each one alone.
    void SetInputCompletionBatch(int buffers);
    // The next `times` calls of that kind (all, for -1) fail with result.
    void FailCall(LxWaveCall call, int result, int times = 1);
    void SetInputDevices(const std::vector<LxWaveInputDeviceInfo>& devices);

    // Appends PCM (in the format of the input device) to the input script.
    void FeedInput(const void* data, size_t bytes);
    // Waits until all fed input has been recorded into buffers and every such
    // buffer has been handed back by its reader (queued again, or its device
    // closed). False when timeoutMilliseconds passed first.
    bool WaitUntilInputConsumed(int timeoutMilliseconds);
    size_t GetPendingInputBytes();
    uint64_t GetRecordedInputBytes();

    // What each output device played, in the order the devices were closed.
    std::vector<std::vector<unsigned char>> GetFinishedOutputs();
    // Devices open now, and opened since the last reset.
    int GetOpenDeviceCount();
    int GetOpenedDeviceCount();
    // Mixer activity since the last reset.
    int GetMixerOpenCount();
    int GetSelectedLine();
    // The last recording volume written, or -1 when none was.
    float GetRecordingVolume();
    int GetRecordingVolumeWrites();

private:
    friend class LxSimulatedWaveDevice;
    friend class LxSimulatedWaveMixer;

    LxSimulatedWaveDriver();
    // A failure to inject into this call, or 0.
    int TakeFailure(LxWaveCall call);
    // Moves up to bytes of input into data; counts them as held by a reader.
    size_t TakeInput(unsigned char* data, size_t bytes);
    bool HasInput();
    // A buffer holding recorded input was handed back (or dropped).
    void InputReturned(int buffers);
    void DeviceOpened();
    void DeviceClosed(std::vector<unsigned char>* output);
    double Speed();
    int InputBatch();
    void MixerOpened();
    void MixerSelected(unsigned line);
    void MixerVolume(float volume);

    std::mutex mutex;
    std::condition_variable inputReturned;
    double speed = 0.0;
    int inputBatch = 1;
    std::map<LxWaveCall, std::pair<int, int>> failures;  // call -> (result, times left)
    std::vector<LxWaveInputDeviceInfo> inputDevices;
    std::vector<unsigned char> input;
    size_t inputRead = 0;
    uint64_t recordedInput = 0;
    int inputHeld = 0;
    std::vector<std::vector<unsigned char>> finishedOutputs;
    int openDevices = 0;
    int openedDevices = 0;
    int mixerOpens = 0;
    int selectedLine = -1;
    float recordingVolume = -1.0f;
    int recordingVolumeWrites = 0;
    float outputVolume = 1.0f;
};
