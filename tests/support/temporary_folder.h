#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

/// A folder of a test's own, empty at first, that goes with all that is in it.
///
///     const TemporaryFolder folder;
///     const std::string path = folder.File("a.ini", "[x]\n");
///     EXPECT_EQ(folder.Read("a.ini"), "[x]\n");
///
/// For tests that need some files; those that need a machine take a FakeHost. Thread-safety: one
/// thread.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "zorn-test.XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error{"mkdtemp " + pattern};
        m_Path = pattern;
    }
    ~TemporaryFolder() { std::filesystem::remove_all(m_Path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The path of something in it, there or not; of the folder itself for an empty name.
    [[nodiscard]] std::string Path(std::string_view name = "") const {
        return name.empty() ? m_Path.string() : (m_Path / name).string();
    }
    /// Makes a file, or gives it another content; its path.
    std::string File(std::string_view name, std::string_view text) const {
        std::ofstream{Path(name), std::ios::binary} << text;
        return Path(name);
    }
    /// The content of a file; empty if there is none.
    [[nodiscard]] std::string Read(std::string_view name) const {
        std::ifstream file{Path(name), std::ios::binary};
        return {std::istreambuf_iterator<char>{file}, {}};
    }
    [[nodiscard]] bool Exists(std::string_view name) const {
        return std::filesystem::exists(std::filesystem::symlink_status(Path(name)));
    }

  private:
    std::filesystem::path m_Path;
};
