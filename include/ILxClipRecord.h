#pragma once
// What the store asks of anything it keeps as a clip record: to write itself
// into "clip.lxa" and to read itself back. The store knows where records are
// (the clip table) but not what is in them; LxAudioClipBase and its subclasses
// are clip records, and so is the store's own plain LxClipRecord.
class ILxReadWriteStream;

class ILxClipRecord {
public:
    virtual ~ILxClipRecord() = default;
    virtual void ReadFromStream(ILxReadWriteStream& stream) = 0;
    virtual void WriteToStream(ILxReadWriteStream& stream) = 0;
};
