// Damage sweeps through the tool: a project with compressed and raw pages, a
// clip that spans two chunks and an edit that shares pages, damaged in many
// ways, each on a fresh copy. Whatever the damage, the tool either exports
// every clip exactly, or says the project is damaged (exit 4) and names every
// clip intact or damaged: intact clips export exactly, damaged ones are
// refused, nothing is saved over the damage, and salvage copies the intact
// clips exactly. Never a crash, never a silent wrong export.
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include "CliTestSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

using Bytes = std::vector<uint8_t>;

uint32_t ReadLe32(const Bytes& bytes, size_t at) {
    return static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
           static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

void FlipByte(const fs::path& file, size_t at) {
    Bytes bytes = CliFiles::Read(file.string());
    bytes.at(at) ^= 0x5A;
    CliFiles::Write(file.string(), bytes);
}

class CliDamageTest : public CliTest {
protected:
    struct Figures {
        int cases = 0, reported = 0, unharmed = 0, unopened = 0, salvaged = 0;
        std::vector<std::string> unharmedCases;
    };

    // The good project: a mono clip on compressed pages, a 7 s stereo clip
    // (more than 1 MiB of raw audio: two chunks of raw.lxa), a short stereo
    // clip and an edit of the stereo clip that keeps its pages on both sides
    // of a deleted stretch. Every clip is exported once as the reference.
    void Build(bool directory) {
        good_ = directory ? "good" : "good.lxp";
        project_ = directory ? "case" : "case.lxp";
        salvaged_ = directory ? "salvaged" : "salvaged.lxp";
        Ok(directory ? std::vector<std::string>{"--dir", "new", good_} : std::vector<std::string>{"new", good_});
        ASSERT_EQ(ImportPcm(good_, "mono.wav", Ramp(44100 * 3, 1, 2), 1), 1);
        Ok({"-q", "compress", good_});
        ASSERT_EQ(ImportPcm(good_, "stereo.wav", Ramp(44100 * 7, 2, 1), 2), 2);
        ASSERT_EQ(ImportPcm(good_, "short.wav", Ramp(22050, 2, 3), 2), 3);
        ASSERT_EQ(ResultClip(Ok({"edit", good_, "2", "delete", "2s", "3s"})), 4);
        CliFiles::WriteWav(files.Path("tiny.wav"), Ramp(100, 1), 1, 44100);
        for (int id = 1; id <= 4; ++id) {
            const CliResult r = Export(good_, id);
            ASSERT_EQ(r.exitCode, 0) << r.err;
            references_[id] = CliFiles::Read(files.Path("out.wav"));
            ASSERT_GT(references_[id].size(), 44u);
        }
        const json info = json::parse(Ok({"info", good_, "--json"}));
        ASSERT_EQ(info["integrity"], json::parse(R"({"verified": true, "damaged": false, "findings": []})"));
        ASSERT_EQ(info["pages"]["compressed"], 2);
        if (directory) {
            ASSERT_TRUE(fs::exists(files.Path("good/raw.lxa2")));
        }
    }

    // Exports a clip to out.wav (removed first, so that an earlier export never counts).
    CliResult Export(const std::string& project, int id) {
        fs::remove(files.Path("out.wav"));
        return Checked({"export", project, std::to_string(id), "out.wav"});
    }

    // Runs the tool; it may fail, never crash.
    CliResult Checked(const std::vector<std::string>& args) {
        CliResult r = cli.Run(args);
        std::string command = "lxaudio";
        for (const std::string& arg : args) command += " " + arg;
        EXPECT_EQ(r.signal, 0) << command << " crashed\nstderr: " << r.err;
        return r;
    }

    // The export of clip id from project is byte for byte the reference of clip reference.
    void ExpectExact(const std::string& project, int id, int reference) {
        const CliResult r = Export(project, id);
        EXPECT_EQ(r.exitCode, 0) << "clip " << id << " of " << project << ": " << r.err;
        EXPECT_TRUE(CliFiles::Read(files.Path("out.wav")) == references_.at(reference))
            << "clip " << id << " of " << project << " exports other bytes than clip " << reference;
    }

    // A fresh copy of the good project, damaged, then held to the promise.
    // mayNotOpen: the damage leaves nothing that could be read as a store.
    void Sweep(const std::string& what, const std::function<void(const fs::path&)>& damage, bool mayNotOpen = false) {
        SCOPED_TRACE(what);
        const fs::path project = files.Path(project_);
        fs::remove_all(project);
        fs::copy(files.Path(good_), project, fs::copy_options::recursive);
        damage(project);
        const auto damaged = CliFiles::Snapshot(project.string());
        ++figures_.cases;

        const CliResult info = Checked({"info", project_, "--json"});
        if (info.exitCode == 1) {
            ++figures_.unopened;
            EXPECT_TRUE(mayNotOpen) << "cannot be opened, yet a store is left: " << info.err;
            EXPECT_EQ(info.out, "");
            return;
        }
        ASSERT_TRUE(info.exitCode == 0 || info.exitCode == 4) << "exit " << info.exitCode << ": " << info.err;
        const json report = json::parse(info.out);
        EXPECT_EQ(report["integrity"]["damaged"].get<bool>(), info.exitCode == 4);
        if (info.exitCode == 0) {
            ++figures_.unharmed;
            figures_.unharmedCases.push_back(what);
            for (const auto& [id, bytes] : references_) ExpectExact(project_, id, id);
            return;
        }

        ++figures_.reported;
        EXPECT_FALSE(report["integrity"]["findings"].empty());
        std::map<int, bool> listed;  // clip ID -> intact
        for (const json& clip : report["clips"]) listed[clip["id"].get<int>()] = !clip.contains("damaged");
        // An ID that only a damaged clip table holds was never saved: it may be
        // listed as damaged, never as a clip that can be used.
        for (const auto& [id, intact] : listed) {
            if (references_.count(id) == 1 || !intact) continue;
            ADD_FAILURE() << "clip " << id << " was never saved, yet is listed as intact";
            const CliResult stray = Export(project_, id);
            EXPECT_NE(stray.exitCode, 0) << "clip " << id << " was never saved, yet exports "
                                         << CliFiles::ReadWav(files.Path("out.wav")).Frames() << " frames";
        }
        std::set<int> intactClips;
        for (const auto& [id, bytes] : references_) {
            auto it = listed.find(id);
            if (it == listed.end()) {
                ADD_FAILURE() << "clip " << id << " is named neither intact nor damaged\n" << info.out;
            } else if (it->second) {
                intactClips.insert(id);
                ExpectExact(project_, id, id);
            } else {
                const CliResult refused = Export(project_, id);
                EXPECT_EQ(refused.exitCode, 4) << "damaged clip " << id << ": " << refused.err;
                EXPECT_FALSE(fs::exists(files.Path("out.wav"))) << "damaged clip " << id << " was exported";
            }
        }

        const CliResult import = Checked({"import", project_, "tiny.wav"});
        EXPECT_EQ(import.exitCode, 4) << import.err;
        EXPECT_NE(import.err.find("damaged; not changed"), std::string::npos) << import.err;
        EXPECT_TRUE(CliFiles::Snapshot(project.string()) == damaged) << "the damaged project was changed";

        fs::remove_all(files.Path(salvaged_));
        const CliResult salvage = Checked({"salvage", project_, salvaged_});
        ASSERT_EQ(salvage.exitCode, 0) << salvage.err;
        const std::regex copiedLine("clip (\\d+) -> (\\d+)");
        std::set<int> copied;
        std::istringstream lines(salvage.out);
        for (std::string line; std::getline(lines, line);) {
            std::smatch match;
            if (!std::regex_match(line, match, copiedLine)) continue;
            const int from = std::stoi(match[1]);
            ASSERT_EQ(references_.count(from), 1u) << line;
            copied.insert(from);
            ExpectExact(salvaged_, std::stoi(match[2]), from);
            ++figures_.salvaged;
        }
        EXPECT_NE(salvage.out.find("salvaged " + std::to_string(copied.size()) + " of "), std::string::npos)
            << salvage.out;
        for (int id : intactClips) EXPECT_EQ(copied.count(id), 1u) << "intact clip " << id << " not salvaged\n" << salvage.out;
    }

    void Print(const std::string& form) const {
        std::cout << form << " project sweep: " << figures_.cases << " cases, " << figures_.reported
                  << " reported damaged, " << figures_.unharmed << " unharmed, " << figures_.unopened
                  << " not opened, " << figures_.salvaged << " clips salvaged exactly\n";
        for (const std::string& what : figures_.unharmedCases) std::cout << "  unharmed: " << what << "\n";
    }

    std::string good_, project_, salvaged_;
    std::map<int, Bytes> references_;
    Figures figures_;
};

}  // namespace

// Single bytes flipped across the whole file (every member's length field and
// middle, the integrity record at its start and in its last bytes, a stride
// across everything) and the file cut short.
TEST_F(CliDamageTest, SweepOfAFileProject) {
    ASSERT_NO_FATAL_FAILURE(Build(false));
    const Bytes good = CliFiles::Read(files.Path(good_));
    std::vector<size_t> positions;
    size_t at = 0;
    for (int member = 0; member < 5; ++member) {
        const size_t length = ReadLe32(good, at);
        positions.push_back(at);
        if (length > 0) positions.push_back(at + 4 + length / 2);
        at += 4 + length;
    }
    const size_t record = at;
    ASSERT_EQ(ReadLe32(good, good.size() - 8), good.size() - record);
    for (size_t offset : {size_t{0}, size_t{9}, (good.size() - record) / 2}) positions.push_back(record + offset);
    for (size_t back : {1, 6, 11}) positions.push_back(good.size() - back);
    for (size_t step = 1; step < 14; ++step) positions.push_back(good.size() * step / 14 + step);
    std::sort(positions.begin(), positions.end());
    positions.erase(std::unique(positions.begin(), positions.end()), positions.end());

    for (size_t flip : positions)
        Sweep("byte " + std::to_string(flip) + " flipped", [&](const fs::path& p) { FlipByte(p, flip); });
    // Cut where the record starts, a project's file has no record and loads as
    // saved without one; cut in half, only part of the raw audio is left (the
    // page table and the clips are gone); cut to 3 bytes, not even a length.
    for (size_t keep : {record, good.size() / 2, size_t{3}}) {
        Sweep("cut to " + std::to_string(keep) + " bytes", [&](const fs::path& p) { fs::resize_file(p, keep); },
              keep < record - 4);
    }
    Print("file");
}

// Every file of a directory project: a byte flipped at two places, cut in
// half, removed, overwritten with a copy of the next file, swapped with it.
TEST_F(CliDamageTest, SweepOfADirectoryProject) {
    ASSERT_NO_FATAL_FAILURE(Build(true));
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(files.Path(good_))) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names, (std::vector<std::string>{"clip.lxa1", "enc.lxa1", "integrity.lxi", "map.lxa1", "pcm.lxa1",
                                               "raw.lxa0", "raw.lxa1", "raw.lxa2"}));
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string& name = names[i];
        const std::string& next = names[(i + 1) % names.size()];
        const size_t size = fs::file_size(files.Path(good_ + "/" + name));
        for (size_t flip : {size / 3, size * 2 / 3})
            Sweep(name + " byte " + std::to_string(flip) + " flipped", [&](const fs::path& p) { FlipByte(p / name, flip); });
        Sweep(name + " cut in half", [&](const fs::path& p) { fs::resize_file(p / name, size / 2); });
        Sweep(name + " removed", [&](const fs::path& p) { fs::remove(p / name); });
        Sweep(name + " replaced by a copy of " + next,
              [&](const fs::path& p) {
                  // Removed first: mingw's copy_file does not overwrite.
                  fs::remove(p / name);
                  fs::copy_file(p / next, p / name);
              });
        Sweep(name + " swapped with " + next, [&](const fs::path& p) {
            fs::rename(p / name, p / "swap");
            fs::rename(p / next, p / name);
            fs::rename(p / "swap", p / next);
        });
    }
    Print("directory");
}
