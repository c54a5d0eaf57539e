#include "LxAudioCaptureConsumer.h"

#include <memory>
#include "LxReportSites.h"
#include "LxAudioConstants.h"
#include "LxAudioClip.h"
#include "LxAudioController.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxExceptionUtils.h"
#include "LxPublic/LxFatalException.h"


LxAudioCaptureConsumer::~LxAudioCaptureConsumer() { Join(); }

void LxAudioCaptureConsumer::Run() {
    if (!initialized) {
        LxReportAt("Initialize should be called before proceeding", LxReportSites::kConsumerNotInitialized);
        return;
    }
    LxExceptionUtils::InstallExceptionHandler();
    std::unique_ptr<LxAudioClip> clip;
    LxAudioCaptureData* item = nullptr;
    try {
        clip = controller->GetNewClip(LX_AUDIO_CLIP_SOURCE_RECORDING);
        pickNext(item);
        while (item != nullptr && !item->IsTerminal()) {
            // Once the store refused a page the clip cannot be whole: it is not
            // stored (the journal keeps the recording), and the rest is not
            // offered to a store that has no room for it.
            if (!clip->HasLostAudio())
                clip->AppendPCMData(item->data, item->byteCount, item->channels, item->framesPerSecond,
                                    item->bitsPerSample, item->volume);
            delete item;
            item = nullptr;
            pickNext(item);
        }
    } catch (const LxException& e) {
        LxExceptionUtils::HandleException(e, GetThreadName());
    } catch (...) {
        LxExceptionUtils::HandleException(LxFatalException(kLxExceptionMsgStr), GetThreadName());
    }
    // Finish the clip with what was appended, in the format of the item in hand
    // (the terminal item, or the one an error interrupted). Finishing keeps
    // whole multiples of 180 bytes of the pending data; the rest is dropped.
    int channels = item != nullptr ? item->channels : 1;
    int framesPerSecond = item != nullptr ? item->framesPerSecond : kLxFrameRate;
    int bitsPerSample = item != nullptr ? item->bitsPerSample : 16;
    float volume = item != nullptr ? item->volume : 1.0f;
    if (clip) {
        try {
            capturedClipID = clip->FinishAppendingPCMData(channels, framesPerSecond, bitsPerSample, volume);
        } catch (const LxException& e) {
            LxExceptionUtils::HandleException(e, GetThreadName());
        } catch (...) {
            LxExceptionUtils::HandleException(LxFatalException(kLxExceptionMsgStr), GetThreadName());
        }
    }
    delete item;
}
