#pragma once
// Decodes one compressed page ahead of the store's reader, on a thread of its
// own, so that reading the Vorbis pages of a clip in order keeps two cores
// busy: while the reader decodes one page itself, the next one is decoded
// here. The store hands over the page's stored bytes (read under its lock);
// this class never touches the store, so a reader may wait for it while
// holding the store's lock.
//
// A decode here gives exactly what the reader's own decode would: each page is
// a stream of its own, decoded to its full length. One that raised any report
// is thrown away, so that the reader decodes the page itself and the reports
// are raised where they always were.
#include <cstdint>
#include <memory>
#include <vector>
#include "LxCodec.h"
#include "LxPCMData.h"
#include "LxPublic/LxCondition.h"
#include "LxPublic/LxMutex.h"
#include "LxPublic/LxWorkerThread.h"

class LxPageDecodeAhead : private LxWorkerThread {
public:
    // Which page, as recorded in which state of the store.
    struct Key {
        int pageID = -1;
        uint32_t pageEpoch = 0;
        LxPCMData record;
    };

    LxPageDecodeAhead();
    ~LxPageDecodeAhead() override;

    // True for a page that can be decoded here: Vorbis, mono or stereo, with a
    // decoded length of at most one page.
    static bool Decodable(const LxPCMData& record);
    // True when the page is waiting, being decoded or decoded here.
    bool Holds(const Key& key);
    // Hands a page's stored bytes over for decoding. Ignored while another
    // page is waiting or being decoded; a decoded page nobody took is dropped.
    void Begin(const Key& key, std::vector<unsigned char> stored);
    // When the page is held here, waits for its decode; true when it decoded
    // without a report and its PCM (bytesRead bytes) was copied into buffer,
    // which takes the whole page. False leaves the page to the caller.
    bool Take(const Key& key, void* buffer, int bufferBytes, int& bytesRead);

private:
    enum class State { kEmpty, kWaiting, kDecoding, kDecoded, kFailed };

    void Run() override;
    const char* GetThreadName() const override { return "page decoder"; }
    static bool SameKey(const Key& a, const Key& b);
    // Decodes the waiting page outside the mutex; false when it reported.
    bool Decode();

    LxMutex mutex;
    LxCondition changed;
    State state = State::kEmpty;
    bool stopping = false;
    Key key;
    std::vector<unsigned char> stored;
    std::vector<unsigned char> pcm;
    int pcmBytes = 0;
    // Used by the thread only: one decoder for mono pages, one for stereo.
    std::unique_ptr<LxCodec> codecs[2];
};
