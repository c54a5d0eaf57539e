#pragma once
// Saving and loading one store: into and from one stream (five length-prefixed
// members, and for a verified save the integrity record after them), and into
// and from a directory of chunk files (incremental saves append only what the
// data members gained). A verified load checks what it loaded (LxStoreChecker)
// and leaves the store marked as loaded damaged when it finds damage. Each call
// holds the store's lock for its whole length.
#include <cstdint>
#include <memory>

class ILxStream;
class ILxReadWriteStream;
class LxAudioFile;
class LxAudioDamageReport;
class LxFile;
class LxFailureWatch;
class LxStoreIntegrityRecord;
class LxZipUpdateInfo;

class LxStorePersistence {
public:
    explicit LxStorePersistence(LxAudioFile& store) : store(store) {}

    // The store's own save and load operations (LxAudioFile.h describes each).
    bool WriteTo(ILxStream& out);
    bool ReadFrom(ILxStream& in);
    bool WriteTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info);
    bool ReadFrom(const LxFile& directoryIn);
    bool WriteVerifiedTo(ILxStream& out);
    bool WriteVerifiedTo(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info);
    bool ReadVerifiedFrom(ILxStream& in, LxAudioDamageReport& report);
    bool ReadVerifiedFrom(const LxFile& directoryIn, LxAudioDamageReport& report);
    bool ReadVerifiedInPlace(const LxFile& projectFile, LxAudioDamageReport& report);

private:
    // ReadVerifiedFrom of one stream; with inPlace (the same stream as in, held
    // by the members from then on) the data members are read in place.
    bool ReadVerifiedStream(ILxStream& in, const std::shared_ptr<ILxReadWriteStream>& inPlace,
                            LxAudioDamageReport& report);
    // The chunk files of a directory save (WriteTo and WriteVerifiedTo).
    bool SaveChunkFiles(const LxFile& directoryOut, bool incremental, LxZipUpdateInfo* info);
    // Resets what lives only in memory after the members were replaced by a
    // load; false (store cleared) when the load failed on disk.
    bool FinishLoad(const LxFailureWatch& memberWatch);
    // Watches the failures of all five member files.
    LxFailureWatch WatchMembers() const;
    // Runs the checks of a verified load and takes the store as loaded damaged when they find damage.
    bool CheckLoaded(const LxStoreIntegrityRecord* record, LxAudioDamageReport& report);

    LxAudioFile& store;
};
