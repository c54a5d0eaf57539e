#pragma once
// The report sites whose line numbers are fixed. A host matches the engine's
// assertion reports on message, source file and line; these reports keep the
// file names and line numbers they have always had, wherever the call now
// stands in the file. Every other report passes __LINE__.
#include "LxPublic/LxAssert.h"

struct LxReportSite {
    const char* sourceFile;
    int line;
};

namespace LxReportSites {

constexpr const char* kAudioClip = "source/components/audiocore/LxAudioClip";
constexpr const char* kController = "source/components/audiocore/LxAudioController";
constexpr const char* kCaptureConsumer = "source/components/audiocore/LxAudioCaptureConsumer";
constexpr const char* kImporter = "source/components/audiocore/LxAudioImporter";
constexpr const char* kPageRange = "source/components/audiocore/LxPageRange";
constexpr const char* kWavImporter = "source/components/audiocore/LxWAVImporter";
constexpr const char* kWaveDevice = "source/components/audiocore/WLxAudioMMIO";

// Clips: translations, sub-clips, edits, effects and merging.
constexpr LxReportSite kInvalidTranslation{kAudioClip, 141};
constexpr LxReportSite kEmptyRange{kAudioClip, 147};
constexpr LxReportSite kClipRecordLongerThanStream{kAudioClip, 142};
constexpr LxReportSite kDeleteWholeClip{kAudioClip, 1650};
constexpr LxReportSite kDeleteInvalidRange{kAudioClip, 1656};
constexpr LxReportSite kInsertInvalidRange{kAudioClip, 1751};
constexpr LxReportSite kInsertInvalidPoint{kAudioClip, 1760};
constexpr LxReportSite kEffectClipUnknownEffect{kAudioClip, 1636};
constexpr LxReportSite kMergeNoController{kAudioClip, 2216};
constexpr LxReportSite kMergeEntryWithoutClip{kAudioClip, 2250};
constexpr LxReportSite kMergeClipsMissing{kAudioClip, 2295};
constexpr LxReportSite kMergeOffsetShort{kAudioClip, 2278};
constexpr LxReportSite kMergePaddingShort{kAudioClip, 2287};
constexpr LxReportSite kMergeInvalidMode{kAudioClip, 2458};
constexpr LxReportSite kMergeMetaDataOrAccumulate{kAudioClip, 2368};
constexpr LxReportSite kMergeUnknownClip{kAudioClip, 2398};
constexpr LxReportSite kMergeClipsOfUnequalLength{kAudioClip, 2431};
// Page ranges.
constexpr LxReportSite kRangeEffectNotVolume{kPageRange, 479};
// The controller's formats that were never built.
constexpr LxReportSite kNoMP3Importer{kController, 144};
constexpr LxReportSite kNoMP3Exporter{kController, 156};
// ... and the exceptions they throw next ("kLxErrorInternal").
constexpr LxReportSite kNoMP3ImporterThrown{kController, 145};
constexpr LxReportSite kNoMP3ExporterThrown{kController, 157};
// Capture and import.
constexpr LxReportSite kConsumerNotInitialized{kCaptureConsumer, 44};
constexpr LxReportSite kImportFailed{kImporter, 114};
constexpr LxReportSite kWavFormatNotSupported{kWavImporter, 289};
constexpr LxReportSite kWavOutputTooSmall{kWavImporter, 182};
constexpr LxReportSite kCaptureCloseFailed{kWaveDevice, 560};
constexpr LxReportSite kCaptureResetFailed{kWaveDevice, 557};

}  // namespace LxReportSites

// Raises the assertion report of a fixed site.
inline void LxReportAt(const char* message, const LxReportSite& site) {
    LxAssertFailed(message, site.sourceFile, site.line);
}
