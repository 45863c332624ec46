// What a look into a private profile of 35,000 lines costs, the size of a file of PCI names, beside
// reading the file and searching it with memmem.
//
//   ProfileVendors         the last key, in the last of 2,300 sections
//   ProfileVendorsFloor    open, read, memmem for that key's name, close
//   ProfileOneSection      the last key of a single section
//   ProfileOneSectionFloor
//   ProfileBrackets        the same with a bracket, which could begin a head, in half of the values
//   ProfileBracketsFloor
//   ProfileMissing         a key that the last section does not have: the default
//   ProfileSections        the list of the 2,300 sections

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "platform/open_file.h"
#include "platform/private_profile.h"

namespace {

constexpr int kLines = 35'000;
constexpr const char* kLastKey = "FFFEFFFE";
constexpr const char* kLastName = "Last Adapter";

constexpr std::array kNames = {
    "Ethernet Controller 10G X550T",
    "82371AB/EB/MB PIIX4 IDE",
    "NVMe SSD Controller PM173X",
    "Xeon E7 v3/Xeon E5 v3/Core i7 QPI Link 0",
    "GM107 [GeForce GTX 745]",
    "MegaRAID SAS-3 3108 [Invader]",
    "Thunderbolt 3 Bridge [Titan Ridge 4C 2018]",
    "GV100GL [Tesla V100 PCIe 16GB]",
};
constexpr size_t kPlainNames = 4;  // those without brackets come first

/// A file that goes at the end of the program.
class ProfileOnDisk {
  public:
    /// A new section each `linesASection` lines, with the first `names` of the names.
    ProfileOnDisk(int linesASection, size_t names)
        : m_Path("/tmp/zorn-bench-" + Number(linesASection + static_cast<int>(names))) {
        std::ofstream file{m_Path};
        for (int i = 0; i < kLines - 1; ++i) {
            if (i % linesASection == 0) {
                m_Section = Number(0x1000 + i / linesASection);
                file << '[' << m_Section << "]\nVendor=Vendor Number " << i << '\n';
            } else {
                file << Number(i % 0xFFF0) << '=' << kNames[static_cast<size_t>(i) % names] << '\n';
            }
        }
        file << kLastKey << '=' << kLastName << '\n';
    }
    ~ProfileOnDisk() { (void)unlink(Path()); }
    ProfileOnDisk(const ProfileOnDisk&) = delete;
    ProfileOnDisk& operator=(const ProfileOnDisk&) = delete;

    [[nodiscard]] const char* Path() const { return m_Path.c_str(); }
    [[nodiscard]] const char* LastSection() const { return m_Section.c_str(); }

  private:
    std::string m_Path;
    std::string m_Section;

    static std::string Number(int number) {
        std::array<char, 16> text;
        (void)snprintf(text.data(), text.size(), "%04X", static_cast<unsigned>(number));
        return text.data();
    }
};

const ProfileOnDisk& Vendors() {
    static const ProfileOnDisk s_File{15, kNames.size()};
    return s_File;
}

const ProfileOnDisk& OneSection() {
    static const ProfileOnDisk s_File{kLines, kPlainNames};
    return s_File;
}

const ProfileOnDisk& Brackets() {
    static const ProfileOnDisk s_File{kLines, kNames.size()};
    return s_File;
}

void Look(benchmark::State& state, const ProfileOnDisk& file, const char* key,
          const char* expected) {
    std::array<char, 260> value;
    for (auto _ : state) {
        (void)GetPrivateProfileString(file.LastSection(), key, "none", value.data(), value.size(),
                                      file.Path());
    }
    if (strcmp(value.data(), expected) != 0) state.SkipWithError("wrong value");
}

void Floor(benchmark::State& state, const ProfileOnDisk& file) {
    for (auto _ : state) {
        const UniqueFd fd = OpenFd(file.Path(), O_RDONLY);
        struct stat status {};
        if (fstat(fd.Get(), &status) != 0) state.SkipWithError("no file");
        const auto size = static_cast<size_t>(status.st_size);
        const auto text = std::make_unique_for_overwrite<char[]>(size);
        if (read(fd.Get(), text.get(), size) != status.st_size) state.SkipWithError("not read");
        const void* found = memmem(text.get(), size, kLastKey, strlen(kLastKey));
        if (found == nullptr) state.SkipWithError("not found");
        benchmark::DoNotOptimize(found);
    }
}

void ProfileVendors(benchmark::State& state) {
    Look(state, Vendors(), kLastKey, kLastName);
}
BENCHMARK(ProfileVendors);

void ProfileVendorsFloor(benchmark::State& state) {
    Floor(state, Vendors());
}
BENCHMARK(ProfileVendorsFloor);

void ProfileOneSection(benchmark::State& state) {
    Look(state, OneSection(), kLastKey, kLastName);
}
BENCHMARK(ProfileOneSection);

void ProfileOneSectionFloor(benchmark::State& state) {
    Floor(state, OneSection());
}
BENCHMARK(ProfileOneSectionFloor);

void ProfileBrackets(benchmark::State& state) {
    Look(state, Brackets(), kLastKey, kLastName);
}
BENCHMARK(ProfileBrackets);

void ProfileBracketsFloor(benchmark::State& state) {
    Floor(state, Brackets());
}
BENCHMARK(ProfileBracketsFloor);

void ProfileMissing(benchmark::State& state) {
    Look(state, Vendors(), "FFFE", "none");
}
BENCHMARK(ProfileMissing);

void ProfileSections(benchmark::State& state) {
    const auto list = std::make_unique<std::array<char, 60'000>>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetPrivateProfileString(nullptr, nullptr, nullptr, list->data(),
                                                         list->size(), Vendors().Path()));
    }
}
BENCHMARK(ProfileSections);

}  // namespace
