#pragma once
// What the store asks of anything it keeps as a clip record: to write itself
// into "clip.lxa" and to read itself back. The store knows where records are
// (the clip table) but not what is in them; LxAudioClipBase and its subclasses
// are clip records, and so is the store's own plain LxClipRecord.
//
// The operations are declared in the order of the clip's own virtual slots
// (destructor, WorthInBytes, WorthInFrames, ReadFromStream, WriteToStream), so
// that LxAudioClipBase, which takes them from here, keeps that slot order.
class ILxReadWriteStream;

class ILxClipRecord {
public:
    virtual ~ILxClipRecord() = default;
    // Length of the audio the record's page ranges cover.
    virtual int WorthInBytes() const = 0;
    virtual int WorthInFrames() const = 0;
    virtual void ReadFromStream(ILxReadWriteStream& stream) = 0;
    virtual void WriteToStream(ILxReadWriteStream& stream) = 0;
};
