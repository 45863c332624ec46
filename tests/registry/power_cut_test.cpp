// What a power cut can leave of the registry's files, and what a start makes of it. Nothing is synced,
// so of what a save has done each step may have reached the disk or not, in any combination: an entry of
// the folder made or renamed, and of a file's bytes none, the first half, or all. The steps are those
// that a save really makes.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "registry/registry_host.h"
#include "support/golden.h"
#include "support/libc_fault.h"

namespace {

std::string Tree(const std::string& version) {
    return "[HKEY_LOCAL_MACHINE]\nA=s=" + version + "\nB=s=" + version + "\n\n\n";
}

std::string HalfOf(const std::string& version) {
    const std::string tree = Tree(version);
    return tree.substr(0, tree.find("B=s="));
}

/// A change of the folder: `to` is made, or `from` gets that name.
struct Step {
    std::string from;  ///< empty: made
    std::string to;
};

/// What is in a file: "v1", "half of v1", "empty".
using Contents = std::map<std::string, std::string>;

const char* const kSteps = "/tmp/steps";

/// Saves v1, v2, ... and writes the steps of it to a file, a line each: what gets a name, or "-", and
/// the name.
void SaveAndTell(int saves) {
    const UniqueFile told{fopen(kSteps, "we")};
    FILE* const steps = told.get();
    FaultOf<&::open> opens;
    opens.Only([](const char*, int flags, mode_t) { return (flags & O_CREAT) != 0; });
    opens.Always([steps](const char* path, int flags, mode_t mode) {
        (void)fprintf(steps, "- %s\n", path);
        return LibcFault::Real<&::open>(path, flags, mode);
    });
    FaultOf<&::rename> renames;
    renames.Always([steps](const char* from, const char* to) {
        (void)fprintf(steps, "%s %s\n", from, to);
        return LibcFault::Real<&::rename>(from, to);
    });
    for (int save = 1; save <= saves; ++save) {
        CRegistry registry{"HKEY_LOCAL_MACHINE", nullptr, 0};
        const std::string version = "v" + std::to_string(save);
        EXPECT_EQ(registry.SetValue("A", version.c_str()), 0);
        EXPECT_EQ(registry.SetValue("B", version.c_str()), 0);
    }
}

std::vector<Step> StepsIn(const std::string& text) {
    std::vector<Step> steps;
    std::istringstream words{text};
    for (Step step; words >> step.from >> step.to;) {
        if (step.from == "-") step.from.clear();
        steps.push_back(step);
    }
    return steps;
}

/// The folder after those steps of `steps` that `reached` has a bit of; `bytes` tells of each file
/// made how much of it has.
Contents After(const std::vector<Step>& steps, unsigned reached, const std::vector<int>& bytes) {
    Contents live{{kRegistry, "v0"}, {kBackup, "older"}};
    Contents disk = live;
    size_t made = 0;
    for (size_t i = 0; i < steps.size(); ++i) {
        const bool isOnDisk = (reached >> i & 1) != 0;
        const Step& step = steps[i];
        std::string moved;
        if (step.from.empty()) {
            const std::string version = "v" + std::to_string(made + 1);
            const std::string states[] = {"empty", "half of " + version, version};
            moved = states[bytes[made++]];
        } else {
            moved = live.at(step.from);
            live.erase(step.from);
            if (isOnDisk && disk.contains(step.from) && disk.at(step.from) == moved) {
                disk.erase(step.from);
            }
        }
        live[step.to] = moved;
        if (isOnDisk) disk[step.to] = moved;
    }
    return disk;
}

std::string TextOf(const std::string& content) {
    if (content == "empty") return "";
    if (content.starts_with("half of ")) return HalfOf(content.substr(8));
    return Tree(content);
}

/// What a process that starts now finds.
std::string LoadedFrom(const Contents& disk) {
    for (const std::string& path : {kRegistry, kBackup, kTemporary}) (void)unlink(path.c_str());
    for (const auto& [path, content] : disk) {
        const UniqueFile file{fopen(path.c_str(), "we")};
        (void)fputs(TextOf(content).c_str(), file.get());
    }
    const pid_t child = fork();
    if (child == 0) {
        const std::string tree = WrittenTree();
        int status = 9;
        const std::string all[] = {Tree("older"), Tree("v0"), Tree("v1"), Tree("v2")};
        for (int i = 0; i < 4; ++i) {
            if (tree == all[i]) status = i;
        }
        if (tree == Tree("v1").substr(0, HalfOf("v1").size()) + "\n\n") status = 4;
        if (tree == Tree("v2").substr(0, HalfOf("v2").size()) + "\n\n") status = 5;
        if (tree == "\n") status = 6;
        _exit(status);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    static constexpr const char* kNames[] = {
        "older", "v0", "v1", "v2", "half of v1", "half of v2", "nothing: the default"};
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 7) << status;
    return kNames[WEXITSTATUS(status) % 7];
}

std::string Padded(std::string text) {
    text.resize(std::max<size_t>(text.size(), 12), ' ');
    return text;
}

/// One line for each state that a cut within or after those steps of `saves` saves can leave.
std::string TableOf(const std::vector<Step>& steps, int saves) {
    std::map<std::pair<std::string, std::string>, std::set<Contents>> states;
    std::vector<int> bytes(static_cast<size_t>(saves));
    for (unsigned bits = 0; bits < 1U << steps.size(); ++bits) {
        for (int combination = 0; combination < (saves == 1 ? 3 : 9); ++combination) {
            bytes[0] = combination % 3;
            if (saves > 1) bytes[1] = combination / 3;
            const Contents disk = After(steps, bits, bytes);
            const auto content = [&disk](const std::string& path) {
                return disk.contains(path) ? disk.at(path) : "missing";
            };
            states[{content(kRegistry), content(kBackup)}].insert(disk);
        }
    }
    std::map<std::string, std::set<std::string>> lines;  // by what is loaded
    for (const auto& [files, disks] : states) {
        lines[LoadedFrom(*disks.begin())].insert(Padded(files.first) + " " + files.second);
    }
    std::string table;
    for (const auto& [loaded, rows] : lines) {
        table += "a start finds " + loaded + "\n";
        for (const std::string& row : rows) table += "    " + row + "\n";
    }
    return table;
}

/// What a cut can leave of a good file and a good backup, made by saves of a process on `host`.
std::string TableOf(int saves) {
    RegistryHost host{Tree("v0")};
    host.File(kBackup, Tree("older"));
    host.Run([saves] { SaveAndTell(saves); });
    const std::vector<Step> steps = StepsIn(host.Read(kSteps));
    host.Run([&] {
        const UniqueFile table{fopen("/tmp/table", "we")};
        (void)fputs(TableOf(steps, saves).c_str(), table.get());
    });
    return host.Read("/tmp/table");
}

}  // namespace

TEST(PowerCut, LeavesTheStatesThatTheTablesTell) {
    ExpectGolden("registry/power_cut_1.txt", TableOf(1));
    ExpectGolden("registry/power_cut_2.txt", TableOf(2));
}

TEST(PowerCut, OfOneSaveLeavesAWholeTreeUnlessAFileIsThereInPart) {
    const std::string table = TableOf(1);
    EXPECT_EQ(table.find("nothing"), table.npos);
    EXPECT_NE(table.find("a start finds half of v1\n    half of v1   "), table.npos);
}
