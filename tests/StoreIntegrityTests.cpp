// Verified saves and loads of a store: the integrity record beside the plain
// bytes, damage found and named (member, chunk, clips), never a clip read back
// wrong without a word, and salvage of what is intact.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include "AssertRecorder.h"
#include "LxAudioClip.h"
#include "LxAudioFile.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxZipUpdateInfo.h"
#include "PcmHelpers.h"
#include "StoreAccess.h"
#include "StoreHelpers.h"
#include "TempDir.h"

namespace {

namespace fs = std::filesystem;
using Audio = std::map<int, std::vector<int16_t>>;

std::vector<int16_t> AudioOf(LxAudioFile& store, int id) { return ClipAudio(store, id, 2); }

// Four clips: a compressed mono clip, a raw stereo clip that fills two chunks
// of "raw.lxa", a short raw clip, and an edit that shares pages with the
// compressed clip and cuts silence from the reserved pages.
Audio Fill(LxAudioFile& store) {
    std::vector<int> ids;
    ids.push_back(StoreClip(store, MakeRamp(44100 * 3, 1, 2), 1));
    store.CompressAllPages(nullptr);
    ids.push_back(StoreClip(store, MakeRamp(44100 * 7, 2, 1), 2));
    ids.push_back(StoreClip(store, MakeRamp(22050, 2, 3), 2));
    LxAudioClip first(store, ids[0]);
    std::unique_ptr<LxAudioClipBase> edit = first.SubClip(1000, 2500);
    int added = 0;
    edit->AppendDeciSecondsOfSilence(5, added, false);
    ids.push_back(edit->WriteToAudioFile());
    Audio audio;
    for (int id : ids) audio[id] = AudioOf(store, id);
    return audio;
}

struct SweepCounts {
    int cases = 0, reported = 0, exact = 0;
    std::vector<std::string> unharmed;
};

// Loads a damaged save into a new store and holds the engine to its promise:
// either every clip reads back exactly, or the load reports damage, every clip
// is named intact or damaged, the intact ones read back exactly, and salvage
// copies every intact clip, exactly.
void ExpectNoSilentDamage(const Audio& expected, const std::function<bool(LxAudioFile&, LxAudioDamageReport&)>& load,
                          const std::string& what, SweepCounts& counts) {
    SCOPED_TRACE(what);
    ++counts.cases;
    TempDir work;
    LxAudioFile store(work.Dir());
    LxAudioDamageReport report;
    AssertRecorder reports;  // the engine's own reports while it reads damaged bytes
    const bool whole = load(store, report);
    if (whole) {
        ++counts.exact;
        counts.unharmed.push_back(what);
        EXPECT_FALSE(report.IsDamaged());
        for (const auto& [id, pcm] : expected) EXPECT_EQ(AudioOf(store, id), pcm) << "clip " << id;
        return;
    }
    ++counts.reported;
    ASSERT_TRUE(report.IsDamaged());
    if (!report.loaded) return;
    for (const auto& [id, pcm] : expected) {
        const bool intact = std::count(report.intactClips.begin(), report.intactClips.end(), id) == 1;
        if (report.verified) {
            EXPECT_NE(intact, report.damagedClips.count(id) == 1) << "clip " << id;
        }
        if (intact) {
            EXPECT_EQ(AudioOf(store, id), pcm) << "clip " << id;
        }
    }
    TempDir work2;
    LxAudioFile target(work2.Dir());
    std::map<int, int> idMap;
    std::set<int> patched;
    store.SalvageInto(target, report, false, idMap, patched);
    EXPECT_TRUE(patched.empty());
    for (int id : report.intactClips) EXPECT_EQ(idMap.count(id), 1u) << "clip " << id;
    for (const auto& [oldID, newID] : idMap) EXPECT_EQ(AudioOf(target, newID), expected.at(oldID)) << "clip " << oldID;
}

std::vector<uint8_t> VerifiedBytes(LxAudioFile& store) {
    LxMemoryStream out;
    EXPECT_TRUE(store.WriteVerifiedTo(out));
    return out.GetBytes();
}

}  // namespace

TEST(StoreIntegrity, VerifiedSavesAddOnlyTheirRecordAndLoadBothWays) {
    TempDir work, dir;
    LxAudioFile store(work.Dir());
    const Audio audio = Fill(store);
    LxMemoryStream plain;
    ASSERT_TRUE(store.WriteTo(plain));
    const std::vector<uint8_t> verified = VerifiedBytes(store);
    ASSERT_GT(verified.size(), plain.GetBytes().size());
    EXPECT_TRUE(std::equal(plain.GetBytes().begin(), plain.GetBytes().end(), verified.begin()));

    // A plain load stops before the record; a verified load of a plain save
    // checks what it can and says it could not verify.
    for (const std::vector<uint8_t>* bytes : {&plain.GetBytes(), &verified}) {
        const bool withRecord = bytes == &verified;
        TempDir a, b;
        LxAudioFile plainLoad(a.Dir()), verifiedLoad(b.Dir());
        LxMemoryStream in(*bytes), again(*bytes);
        ASSERT_TRUE(plainLoad.ReadFrom(in));
        LxAudioDamageReport report;
        AssertRecorder none;
        ASSERT_TRUE(verifiedLoad.ReadVerifiedFrom(again, report)) << report.Summary();
        EXPECT_EQ(none.Count(), 0u);
        EXPECT_EQ(report.verified, withRecord);
        EXPECT_EQ(report.intactClips.size(), audio.size());
        for (const auto& [id, pcm] : audio) {
            EXPECT_EQ(AudioOf(plainLoad, id), pcm);
            EXPECT_EQ(AudioOf(verifiedLoad, id), pcm);
        }
    }

    // The directory form: the same chunk files and "integrity.lxi", reported as
    // added, then changed; a plain save into the directory removes it.
    LxZipUpdateInfo info;
    ASSERT_TRUE(store.WriteVerifiedTo(dir.Dir(), false, &info));
    EXPECT_EQ(std::count(info.addedFiles.begin(), info.addedFiles.end(), "integrity.lxi"), 1);
    info.Clear();
    ASSERT_TRUE(store.WriteVerifiedTo(dir.Dir(), true, &info));
    EXPECT_EQ(std::count(info.changedFiles.begin(), info.changedFiles.end(), "integrity.lxi"), 1);
    {
        TempDir other;
        LxAudioFile copy(other.Dir());
        LxAudioDamageReport report;
        EXPECT_TRUE(copy.ReadVerifiedFrom(dir.Dir(), report));
        EXPECT_TRUE(report.verified);
        EXPECT_EQ(AudioOf(copy, audio.begin()->first), audio.begin()->second);
    }
    ASSERT_TRUE(store.WriteTo(dir.Dir(), false, nullptr));
    EXPECT_FALSE(dir.Child("integrity.lxi").Exists());
}

// Single bytes flipped across the whole one-stream save (members, length
// fields, the record), and the save cut short.
TEST(StoreIntegrity, DamageSweepOfTheOneStreamForm) {
    TempDir work;
    LxAudioFile store(work.Dir());
    const Audio audio = Fill(store);
    const std::vector<uint8_t> good = VerifiedBytes(store);
    SweepCounts counts;
    auto loadBytes = [](const std::vector<uint8_t>& bytes) {
        return [bytes](LxAudioFile& target, LxAudioDamageReport& report) {
            LxMemoryStream in(bytes);
            return target.ReadVerifiedFrom(in, report);
        };
    };
    // Every length field and the record's edges, then a stride across everything.
    std::vector<size_t> positions;
    for (size_t at = 0, member = 0; member < 5; ++member) {
        // Its length field, and the first words of the member (in "map.lxa" a clip ID and its position).
        for (size_t offset : {0, 8, 12}) positions.push_back(at + offset);
        at += 4 + static_cast<size_t>(ReadLe32(good, at));
    }
    for (size_t back = 1; back <= 40; back += 3) positions.push_back(good.size() - back);
    for (size_t at = 1; at < good.size(); at += 4099) positions.push_back(at);
    for (size_t at : positions) {
        std::vector<uint8_t> bytes = good;
        bytes[at] ^= 0x5A;
        ExpectNoSilentDamage(audio, loadBytes(bytes), "byte " + std::to_string(at) + " flipped", counts);
    }
    for (size_t keep : {good.size() - 1, good.size() - 30, good.size() / 2, size_t{3}}) {
        ExpectNoSilentDamage(audio, loadBytes(std::vector<uint8_t>(good.begin(), good.begin() + keep)),
                             "cut to " + std::to_string(keep) + " bytes", counts);
    }
    EXPECT_EQ(counts.exact, 0);
    std::cout << "one-stream sweep: " << counts.cases << " cases, " << counts.reported << " reported, "
              << counts.exact << " unharmed\n";
}

// Bytes flipped in every chunk file at several places; every chunk file cut,
// removed, duplicated and swapped with another.
TEST(StoreIntegrity, DamageSweepOfTheDirectoryForm) {
    TempDir work, saved;
    LxAudioFile store(work.Dir());
    const Audio audio = Fill(store);
    ASSERT_TRUE(store.WriteVerifiedTo(saved.Dir(), false, nullptr));
    ASSERT_TRUE(saved.Child("raw.lxa0").Exists());
    const fs::path from(saved.Dir().GetPath().str());
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(from)) files.push_back(entry.path().filename().string());
    std::sort(files.begin(), files.end());
    SweepCounts counts;
    auto damaged = [&](const std::string& what, const std::function<void(const fs::path&)>& damage) {
        TempDir copy;
        const fs::path to(copy.Dir().GetPath().str());
        for (const std::string& name : files) fs::copy_file(from / name, to / name);
        damage(to);
        ExpectNoSilentDamage(
            audio, [&](LxAudioFile& target, LxAudioDamageReport& report) { return target.ReadVerifiedFrom(copy.Dir(), report); },
            what, counts);
    };
    auto rewrite = [](const fs::path& file, const std::function<void(std::vector<uint8_t>&)>& change) {
        LxFile f(LxString(file.string()));
        std::vector<uint8_t> bytes = FileBytes(f);
        change(bytes);
        WriteFileBytes(f, bytes);
    };
    for (const std::string& name : files) {
        const size_t size = fs::file_size(from / name);
        for (size_t step = 0; step < 6; ++step) {
            const size_t at = size * step / 6 + step;
            if (at >= size) continue;
            damaged(name + " byte " + std::to_string(at) + " flipped",
                    [&](const fs::path& dir) { rewrite(dir / name, [&](std::vector<uint8_t>& b) { b[at] ^= 0x5A; }); });
        }
        damaged(name + " cut in half", [&](const fs::path& dir) { fs::resize_file(dir / name, size / 2); });
        damaged(name + " removed", [&](const fs::path& dir) { fs::remove(dir / name); });
        for (const std::string& other : files) {
            if (other == name) continue;
            damaged(other + " replaced by a copy of " + name,
                    [&](const fs::path& dir) {
                        // Removed first: mingw's copy_file does not overwrite.
                        fs::remove(dir / other);
                        fs::copy_file(dir / name, dir / other);
                    });
            if (other > name) {
                damaged(name + " swapped with " + other, [&](const fs::path& dir) {
                    fs::rename(dir / name, dir / "swap");
                    fs::rename(dir / other, dir / name);
                    fs::rename(dir / "swap", dir / other);
                });
            }
        }
        const std::string member = name.substr(0, name.size() - 1);
        if (name.back() >= '1' && name.back() <= '9') {
            const std::string next = member + std::to_string(name.back() - '0' + 2);
            damaged(name + " duplicated as " + next, [&](const fs::path& dir) { fs::copy_file(dir / name, dir / next); });
        }
    }
    // Only the loss of the record itself (the store loads as a plain save) and a
    // stray chunk beyond those saved (nothing reads it) leave the store unharmed.
    for (const std::string& what : counts.unharmed)
        EXPECT_TRUE(what == "integrity.lxi removed" || what.find("duplicated as") != std::string::npos) << what;
    std::cout << "directory sweep: " << counts.cases << " cases, " << counts.reported << " reported, "
              << counts.exact << " unharmed\n";
}

// A store saved without a record: what its structure allows is still checked,
// and the damage named with the clips it touches.
TEST(StoreIntegrity, PlainSavesAreCheckedForStructure) {
    TempDir work, saved;
    LxAudioFile store(work.Dir());
    const Audio audio = Fill(store);
    const int compressed = audio.begin()->first;
    const int rawClip = std::next(audio.begin())->first;
    ASSERT_TRUE(store.WriteTo(saved.Dir(), false, nullptr));
    LxPCMData firstRaw;
    const int rawPage = LxAudioClip(store, rawClip).GetPageRanges()[0].startPage;
    ASSERT_TRUE(store.ReadPageHeader(rawPage, firstRaw));
    struct Case {
        const char* what;
        std::function<void(const LxFile&)> damage;
        const char* member;
        std::vector<int> damagedClips;
    };
    const Case cases[] = {
        {"map.lxa1 removed", [](const LxFile& d) { d.GetChild("map.lxa1").Delete(); }, "map.lxa", {}},
        {"clip table points past the clip data",
         [&](const LxFile& d) {
             std::vector<uint8_t> map = FileBytes(d.GetChild("map.lxa1"));
             const std::vector<uint8_t> far = Le32({1 << 20});
             std::copy(far.begin(), far.end(), map.begin() + 8);
             WriteFileBytes(d.GetChild("map.lxa1"), map);
         },
         "clip.lxa", {compressed}},
        {"page record's data outside raw.lxa",
         [&](const LxFile& d) {
             std::vector<uint8_t> pcm = FileBytes(d.GetChild("pcm.lxa1"));
             const std::vector<uint8_t> far = Le32({firstRaw.dataRange.start + (1 << 24), firstRaw.dataRange.end + (1 << 24)});
             std::copy(far.begin(), far.end(), pcm.begin() + rawPage + 8);
             WriteFileBytes(d.GetChild("pcm.lxa1"), pcm);
         },
         "pcm.lxa", {rawClip}},
        {"count file says three chunks", [](const LxFile& d) { WriteFileBytes(d.GetChild("raw.lxa0"), Le32({3})); },
         "raw.lxa", {}},
        {"second chunk of raw.lxa missing", [](const LxFile& d) { d.GetChild("raw.lxa2").Delete(); }, "raw.lxa", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir copy;
        for (const char* name : {"raw.lxa0", "raw.lxa1", "raw.lxa2", "enc.lxa1", "pcm.lxa1", "clip.lxa1", "map.lxa1"})
            WriteFileBytes(copy.Child(name), FileBytes(saved.Child(name)));
        c.damage(copy.Dir());
        TempDir target;
        LxAudioFile loaded(target.Dir());
        LxAudioDamageReport report;
        AssertRecorder reports;
        EXPECT_FALSE(loaded.ReadVerifiedFrom(copy.Dir(), report));
        EXPECT_FALSE(report.verified);
        ASSERT_TRUE(report.IsDamaged());
        EXPECT_EQ(report.damage[0].member, c.member) << report.Summary();
        for (int id : c.damagedClips) EXPECT_EQ(report.damagedClips.count(id), 1u) << id << report.Summary();
        for (int id : report.intactClips) EXPECT_EQ(AudioOf(loaded, id), audio.at(id)) << id;
    }
}

// Salvage with silence in the holes: the damaged clip keeps its length, its
// lost page reads as zeros and the rest exactly; the damaged store refuses to
// be saved.
TEST(StoreIntegrity, SalvageFillsLostPagesWithSilence) {
    TempDir work;
    LxAudioFile store(work.Dir());
    const Audio audio = Fill(store);
    const int rawClip = std::next(audio.begin())->first;
    LxPCMData record;
    const int secondPage = LxAudioClip(store, rawClip).GetPageRanges()[0].startPage + kLxPageRecordBytes;
    ASSERT_TRUE(store.ReadPageHeader(secondPage, record));
    std::vector<uint8_t> bytes = VerifiedBytes(store);
    bytes[4 + static_cast<size_t>(record.dataRange.start) + 100] ^= 1;  // raw.lxa is the first member

    TempDir loadedDir, targetDir;
    LxAudioFile loaded(loadedDir.Dir()), target(targetDir.Dir());
    LxMemoryStream in(bytes);
    LxAudioDamageReport report;
    ASSERT_FALSE(loaded.ReadVerifiedFrom(in, report));
    ASSERT_EQ(report.damage.size(), 1u);
    EXPECT_EQ(LxAudioDamageReport::Describe(report.damage[0]),
              "raw.lxa, chunk 1 (bytes 0 to 1048575): checksum differs");
    EXPECT_EQ(report.damagedPages, std::set<int>{secondPage});
    EXPECT_EQ(report.damagedClips, (std::map<int, std::string>{{rawClip, "page " + std::to_string(secondPage) + " damaged"}}));

    std::map<int, int> idMap;
    std::set<int> patched;
    EXPECT_EQ(loaded.SalvageInto(target, report, true, idMap, patched), 4);
    EXPECT_EQ(patched, std::set<int>{rawClip});
    std::vector<int16_t> expected = audio.at(rawClip);
    std::fill(expected.begin() + 88200, expected.begin() + 2 * 88200, 0);  // the second page: one second of stereo
    EXPECT_EQ(AudioOf(target, idMap[rawClip]), expected);
    for (const auto& [id, pcm] : audio)
        if (id != rawClip) {
            EXPECT_EQ(AudioOf(target, idMap[id]), pcm);
        }

    AssertRecorder recorder;
    LxMemoryStream out;
    EXPECT_FALSE(loaded.WriteTo(out));
    ASSERT_EQ(recorder.Count(), 1u);
    EXPECT_EQ(recorder.Reports()[0].message, "store was loaded damaged; not saved (salvage its clips into a new store)");
}
