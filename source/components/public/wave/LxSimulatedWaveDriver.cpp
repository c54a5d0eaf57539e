#include "LxPublic/wave/LxSimulatedWaveDriver.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include "LxSimulatedWaveDevice.h"
#include "LxSimulatedWaveMixer.h"

namespace {

std::vector<LxWaveInputDeviceInfo> DefaultInputDevices() {
    return {LxWaveInputDeviceInfo{"Simulated input", {"Microphone", "Line in"}}};
}

bool UsableFormat(const LxWaveFormat& format) {
    return (format.channels == 1 || format.channels == 2) && format.bitsPerSample == 16 &&
           format.framesPerSecond > 0;
}

}  // namespace

LxSimulatedWaveDriver& LxSimulatedWaveDriver::Instance() {
    static LxSimulatedWaveDriver instance;
    return instance;
}

LxSimulatedWaveDriver::LxSimulatedWaveDriver() : inputDevices(DefaultInputDevices()) {}

int LxSimulatedWaveDriver::OpenInput(unsigned deviceIndex, const LxWaveFormat& format, LxWaveEvent& event,
                                     std::unique_ptr<LxWaveDevice>& device) {
    if (int failure = TakeFailure(LxWaveCall::OpenInput)) return failure;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (deviceIndex >= inputDevices.size()) return kLxWaveBadDeviceID;
    }
    if (!UsableFormat(format)) return kLxWaveBadFormat;
    device = std::make_unique<LxSimulatedWaveDevice>(*this, true, deviceIndex, format, event);
    return kLxWaveOk;
}

int LxSimulatedWaveDriver::OpenOutput(const LxWaveFormat& format, LxWaveEvent& event,
                                      std::unique_ptr<LxWaveDevice>& device) {
    if (int failure = TakeFailure(LxWaveCall::OpenOutput)) return failure;
    if (!UsableFormat(format)) return kLxWaveBadFormat;
    device = std::make_unique<LxSimulatedWaveDevice>(*this, false, 0, format, event);
    return kLxWaveOk;
}

std::unique_ptr<LxWaveMixer> LxSimulatedWaveDriver::OpenInputMixer(LxWaveDevice& input) {
    auto* device = dynamic_cast<LxSimulatedWaveDevice*>(&input);
    if (device == nullptr) return nullptr;
    return OpenInputMixer(device->GetDeviceIndex());
}

std::unique_ptr<LxWaveMixer> LxSimulatedWaveDriver::OpenInputMixer(unsigned deviceIndex) {
    if (TakeFailure(LxWaveCall::OpenMixer) != 0) return nullptr;
    unsigned lines = 0;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (deviceIndex >= inputDevices.size()) return nullptr;
        lines = static_cast<unsigned>(inputDevices[deviceIndex].lines.size());
    }
    MixerOpened();
    return std::make_unique<LxSimulatedWaveMixer>(*this, lines);
}

void LxSimulatedWaveDriver::GetInputDevices(std::vector<LxWaveInputDeviceInfo>& devices) {
    std::lock_guard<std::mutex> lock(mutex);
    devices = inputDevices;
}

int LxSimulatedWaveDriver::GetOutputVolume(float& volume) {
    std::lock_guard<std::mutex> lock(mutex);
    volume = outputVolume;
    return kLxWaveOk;
}

int LxSimulatedWaveDriver::SetOutputVolume(float volume) {
    std::lock_guard<std::mutex> lock(mutex);
    outputVolume = std::clamp(volume, 0.0f, 1.0f);
    return kLxWaveOk;
}

void LxSimulatedWaveDriver::ResetSimulation() {
    std::lock_guard<std::mutex> lock(mutex);
    speed = 0.0;
    inputBatch = 1;
    failures.clear();
    inputDevices = DefaultInputDevices();
    input.clear();
    inputRead = 0;
    recordedInput = 0;
    finishedOutputs.clear();
    openedDevices = 0;
    mixerOpens = 0;
    selectedLine = -1;
    recordingVolume = -1.0f;
    recordingVolumeWrites = 0;
    outputVolume = 1.0f;
    inputReturned.notify_all();
}

void LxSimulatedWaveDriver::SetSpeed(double timesRealTime) {
    std::lock_guard<std::mutex> lock(mutex);
    speed = timesRealTime > 0.0 ? timesRealTime : 0.0;
}

void LxSimulatedWaveDriver::SetInputCompletionBatch(int buffers) {
    std::lock_guard<std::mutex> lock(mutex);
    inputBatch = std::max(1, buffers);
}

void LxSimulatedWaveDriver::FailCall(LxWaveCall call, int result, int times) {
    std::lock_guard<std::mutex> lock(mutex);
    if (times == 0 || result == 0) {
        failures.erase(call);
        return;
    }
    failures[call] = {result, times};
}

void LxSimulatedWaveDriver::SetInputDevices(const std::vector<LxWaveInputDeviceInfo>& devices) {
    std::lock_guard<std::mutex> lock(mutex);
    inputDevices = devices;
}

void LxSimulatedWaveDriver::FeedInput(const void* data, size_t bytes) {
    if (data == nullptr || bytes == 0) return;
    std::lock_guard<std::mutex> lock(mutex);
    const auto* first = static_cast<const unsigned char*>(data);
    input.insert(input.end(), first, first + bytes);
}

bool LxSimulatedWaveDriver::WaitUntilInputConsumed(int timeoutMilliseconds) {
    std::unique_lock<std::mutex> lock(mutex);
    return inputReturned.wait_for(lock, std::chrono::milliseconds(timeoutMilliseconds),
                                  [this] { return inputRead >= input.size() && inputHeld == 0; });
}

size_t LxSimulatedWaveDriver::GetPendingInputBytes() {
    std::lock_guard<std::mutex> lock(mutex);
    return input.size() - inputRead;
}

uint64_t LxSimulatedWaveDriver::GetRecordedInputBytes() {
    std::lock_guard<std::mutex> lock(mutex);
    return recordedInput;
}

std::vector<std::vector<unsigned char>> LxSimulatedWaveDriver::GetFinishedOutputs() {
    std::lock_guard<std::mutex> lock(mutex);
    return finishedOutputs;
}

int LxSimulatedWaveDriver::GetOpenDeviceCount() {
    std::lock_guard<std::mutex> lock(mutex);
    return openDevices;
}

int LxSimulatedWaveDriver::GetOpenedDeviceCount() {
    std::lock_guard<std::mutex> lock(mutex);
    return openedDevices;
}

int LxSimulatedWaveDriver::GetMixerOpenCount() {
    std::lock_guard<std::mutex> lock(mutex);
    return mixerOpens;
}

int LxSimulatedWaveDriver::GetSelectedLine() {
    std::lock_guard<std::mutex> lock(mutex);
    return selectedLine;
}

float LxSimulatedWaveDriver::GetRecordingVolume() {
    std::lock_guard<std::mutex> lock(mutex);
    return recordingVolume;
}

int LxSimulatedWaveDriver::GetRecordingVolumeWrites() {
    std::lock_guard<std::mutex> lock(mutex);
    return recordingVolumeWrites;
}

int LxSimulatedWaveDriver::TakeFailure(LxWaveCall call) {
    std::lock_guard<std::mutex> lock(mutex);
    auto found = failures.find(call);
    if (found == failures.end()) return 0;
    int result = found->second.first;
    int& left = found->second.second;
    if (left > 0 && --left == 0) failures.erase(found);
    return result;
}

size_t LxSimulatedWaveDriver::TakeInput(unsigned char* data, size_t bytes) {
    std::lock_guard<std::mutex> lock(mutex);
    size_t n = std::min(bytes, input.size() - inputRead);
    if (n == 0) return 0;
    std::memcpy(data, input.data() + inputRead, n);
    inputRead += n;
    if (inputRead == input.size()) {
        input.clear();
        inputRead = 0;
    }
    recordedInput += n;
    ++inputHeld;
    return n;
}

bool LxSimulatedWaveDriver::HasInput() {
    std::lock_guard<std::mutex> lock(mutex);
    return inputRead < input.size();
}

void LxSimulatedWaveDriver::InputReturned(int buffers) {
    if (buffers <= 0) return;
    std::lock_guard<std::mutex> lock(mutex);
    inputHeld -= buffers;
    inputReturned.notify_all();
}

void LxSimulatedWaveDriver::DeviceOpened() {
    std::lock_guard<std::mutex> lock(mutex);
    ++openDevices;
    ++openedDevices;
}

void LxSimulatedWaveDriver::DeviceClosed(std::vector<unsigned char>* output) {
    std::lock_guard<std::mutex> lock(mutex);
    --openDevices;
    if (output != nullptr) finishedOutputs.push_back(std::move(*output));
}

double LxSimulatedWaveDriver::Speed() {
    std::lock_guard<std::mutex> lock(mutex);
    return speed;
}

int LxSimulatedWaveDriver::InputBatch() {
    std::lock_guard<std::mutex> lock(mutex);
    return inputBatch;
}

void LxSimulatedWaveDriver::MixerOpened() {
    std::lock_guard<std::mutex> lock(mutex);
    ++mixerOpens;
}

void LxSimulatedWaveDriver::MixerSelected(unsigned line) {
    std::lock_guard<std::mutex> lock(mutex);
    selectedLine = static_cast<int>(line);
}

void LxSimulatedWaveDriver::MixerVolume(float volume) {
    std::lock_guard<std::mutex> lock(mutex);
    recordingVolume = volume;
    ++recordingVolumeWrites;
}
