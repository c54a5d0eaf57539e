#include "WLxAudioDeviceWriterThreadMMIO.h"

#include <cstring>
#include "WLxAudioPlayBackDeviceMMIO.h"
#include "LxPublic/LxException.h"
#include "LxPublic/LxExceptionUtils.h"
#include "LxPublic/LxFatalException.h"

WLxAudioDeviceWriterThreadMMIO::WLxAudioDeviceWriterThreadMMIO(WLxAudioPlayBackDeviceMMIO& owner)
    : LxWorkerThread(kLxThreadPriorityHighest), device(owner) {}

WLxAudioDeviceWriterThreadMMIO::~WLxAudioDeviceWriterThreadMMIO() { Join(); }

void WLxAudioDeviceWriterThreadMMIO::Run() {
    LxExceptionUtils::InstallExceptionHandler();
    bool endSeen = false;
    int emptyReads = 0;
    try {
        for (;;) {
            if (!running) {
                if (endSeen && device.stopFunction != nullptr) device.stopFunction(device.SourceClipID(), device.stopContext);
                return;
            }
            device.event.Wait();
            for (LxWaveHeader& header : device.headers) {
                if (!device.handle->IsDone(header)) continue;
                int bytes = device.FillBuffer(header);
                if (bytes < 1) {
                    endSeen = true;
                    device.ReportPosition(true);
                    if (++emptyReads > 4) {
                        running = false;
                        break;
                    }
                    // Filler, so that the last real audio drains before the
                    // end is declared; deliberately 0x0101, not silence.
                    std::memset(header.data, 1, static_cast<size_t>(device.bufferSize));
                    header.bufferLength = static_cast<uint32_t>(device.bufferSize);
                    device.handle->Queue(header);
                } else {
                    header.bufferLength = static_cast<uint32_t>(bytes);
                    device.handle->Queue(header);
                    device.framesWritten += bytes / 4;
                    device.ReportPosition(false);
                }
            }
        }
    } catch (const LxException& e) {
        LxExceptionUtils::HandleException(e, GetThreadName());
    } catch (...) {
        LxExceptionUtils::HandleException(LxFatalException(kLxExceptionMsgStr), GetThreadName());
    }
}
