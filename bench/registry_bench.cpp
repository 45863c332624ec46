// What the registry costs with 1,000 keys of 100 values, beside GLib's GKeyFile, inih and SQLite, and
// beside a floor: one read or write, views into it, sorted vectors.
//
//   RegistryLoad, Load...        the file into memory; freeing is not counted
//   RegistryLoadFirst, ...       the same as the first in a process: its memory comes from the kernel
//   RegistrySave, Save...        the tree into its file, which another process could read afterwards
//   RegistryGet, Get...          one text of an open key (SQLite: a prepared statement)
//   RegistryGetText              the same into a std::string
//   RegistryOpen                 a key six levels deep
//   RegistryHandle               a handle made and destroyed, nothing changed
//   RegistryOneKey/N             a key of N values, in the order of names and in disorder
//
// All files are in memory (a tmpfs of this process's own at the registry's place), so that what is
// measured is not the disk. SQLite runs with synchronous=off and one transaction.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <glib.h>
#include <ini.h>
#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "registry/registry.h"
#include "support/processor_time.h"
#include "trace/unique_file.h"

namespace {

constexpr int kKeys = 1000;
constexpr int kValues = 100;
const std::string kFolder = "/opt/Corvanthimex/vital/etc/tolbrin";
const std::string kRegistry = kFolder + "/registry";
const std::string kIni = kFolder + "/bench.ini";
const std::string kDatabase = kFolder + "/bench.db";

[[noreturn]] void Die(const char* what) {
    perror(what);
    exit(1);
}

void WriteFile(const std::string& path, std::string_view text) {
    UniqueFile file{fopen(path.c_str(), "we")};
    if (file == nullptr || fwrite(text.data(), 1, text.size(), file.get()) != text.size()) {
        Die(path.c_str());
    }
}

std::string Number(int number, int digits) {
    std::string text = std::to_string(number);
    text.insert(0, static_cast<size_t>(digits) - text.size(), '0');
    return text;
}

std::string KeyName(int key) {
    return "Key" + Number(key, 4);
}
std::string ValueName(int value) {
    return "Value" + Number(value, 3);
}
std::string Text(int key, int value) {
    return "text " + std::to_string(key * value) + " of this value";
}

std::string RegistryText() {
    std::string text = "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n";
    for (int key = 0; key < kKeys; ++key) {
        text += "[" + KeyName(key) + "]\n";
        for (int value = 0; value < kValues; ++value) {
            text += ValueName(value) + "=s=" + Text(key, value) + "\n";
        }
        text += "\n";
    }
    return text + "\n[SYSTEM]\n[A]\n[B]\n[C]\n[D]\nlast=d=1\n\n\n\n\n\n\n\n";
}

std::string IniText() {
    std::string text;
    for (int key = 0; key < kKeys; ++key) {
        text += "[" + KeyName(key) + "]\n";
        for (int value = 0; value < kValues; ++value) {
            text += ValueName(value) + "=" + Text(key, value) + "\n";
        }
    }
    return text;
}

/// Calls `work` and counts its processor time as this iteration's: nothing here waits, and what else
/// the machine does is left out.
template <typename Work>
void Time(benchmark::State& state, Work work) {
    state.SetIterationTime(ProcessorSecondsOf(work));
}

/// The same for work that a process of its own does, whose memory nobody has touched.
template <typename Work>
void TimeInChild(benchmark::State& state, Work work) {
    int ends[2];
    if (pipe(ends) != 0) Die("pipe");
    const pid_t child = fork();
    if (child == 0) {
        const double seconds = ProcessorSecondsOf(work);
        _exit(write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
    }
    double seconds = 0;
    if (read(ends[0], &seconds, sizeof seconds) != sizeof seconds) Die("child");
    (void)waitpid(child, nullptr, 0);
    (void)close(ends[0]);
    (void)close(ends[1]);
    state.SetIterationTime(seconds);
}

/// The values to look for, one after the other in no order that a cache would know.
class Targets {
  public:
    Targets() {
        std::mt19937 random{1};
        for (int i = 0; i < kCount; ++i) {
            m_Keys.push_back(static_cast<int>(random() % kKeys));
            m_Values.push_back(ValueName(static_cast<int>(random() % kValues)));
        }
    }
    int Next() { return m_At = (m_At + 1) % kCount; }
    [[nodiscard]] int Key(int at) const { return m_Keys[static_cast<size_t>(at)]; }
    [[nodiscard]] const char* Value(int at) const {
        return m_Values[static_cast<size_t>(at)].c_str();
    }

  private:
    static constexpr int kCount = 1024;
    std::vector<int> m_Keys;
    std::vector<std::string> m_Values;
    int m_At = 0;
};

// --- The registry ------------------------------------------------------------------------------

/// What the C library puts off of freeing small blocks is not to be done by the next load.
void FinishFreeing() {
    const std::string large(size_t{1} << 17, ' ');
    benchmark::DoNotOptimize(large.data());
}

void RegistryLoad(benchmark::State& state) {
    for (auto _ : state) {
        FinishFreeing();
        CRegistryNode node;
        Time(state,
             [&] { benchmark::DoNotOptimize(CRegistry::RestoreTree(kRegistry.c_str(), &node)); });
    }
}
BENCHMARK(RegistryLoad)->UseManualTime();

void RegistryLoadFirst(benchmark::State& state) {
    for (auto _ : state) {
        TimeInChild(state, [] {
            auto* const node = new CRegistryNode;
            benchmark::DoNotOptimize(CRegistry::RestoreTree(kRegistry.c_str(), node));
        });
    }
}
BENCHMARK(RegistryLoadFirst)->UseManualTime();

void RegistrySave(benchmark::State& state) {
    for (auto _ : state) {
        auto registry = std::make_unique<CRegistry>("SOFTWARE\\Key0500",
                                                    CRegistry::MHives[kHiveLocalMachine], 0);
        if (registry->SetValue("Value000", "changed") != 0) state.SkipWithError("no tree");
        Time(state, [&] { registry.reset(); });
    }
}
BENCHMARK(RegistrySave)->UseManualTime();

void RegistryGet(benchmark::State& state) {
    CRegistry registry{"SOFTWARE\\Key0500", CRegistry::MHives[kHiveLocalMachine], 0};
    Targets targets;
    for (auto _ : state) {
        benchmark::DoNotOptimize(registry.GetValue(targets.Value(targets.Next()), nullptr));
    }
}
BENCHMARK(RegistryGet);

void RegistryGetText(benchmark::State& state) {
    CRegistry registry{"SOFTWARE\\Key0500", CRegistry::MHives[kHiveLocalMachine], 0};
    Targets targets;
    std::string text;
    for (auto _ : state) {
        if (registry.GetValue(text, targets.Value(targets.Next()), nullptr) != 0) {
            state.SkipWithError("missing");
        }
    }
}
BENCHMARK(RegistryGetText);

void RegistryOpen(benchmark::State& state) {
    CRegistry registry;
    for (auto _ : state) {
        if (registry.Open("HKEY_LOCAL_MACHINE\\SYSTEM\\A\\B\\C\\D", nullptr, 0) != 0) {
            state.SkipWithError("missing");
        }
    }
}
BENCHMARK(RegistryOpen);

void RegistryHandle(benchmark::State& state) {
    for (auto _ : state) const CRegistry registry;
}
BENCHMARK(RegistryHandle);

/// A key of `state.range(0)` values; in disorder if `state.range(1)`.
void RegistryOneKey(benchmark::State& state) {
    std::vector<int> numbers(static_cast<size_t>(state.range(0)));
    for (size_t i = 0; i < numbers.size(); ++i) numbers[i] = static_cast<int>(i);
    if (state.range(1) != 0) std::shuffle(numbers.begin(), numbers.end(), std::mt19937{1});
    std::string text = "[Key]\n";
    for (const int number : numbers) text += "Value" + Number(number, 7) + "=s=text\n";
    const std::string path = kFolder + "/one-key";
    WriteFile(path, text);
    for (auto _ : state) {
        CRegistryNode node;
        Time(state, [&] { benchmark::DoNotOptimize(CRegistry::RestoreTree(path.c_str(), &node)); });
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(RegistryOneKey)->UseManualTime()->ArgsProduct({{1000, 10000, 100000}, {0, 1}});

// --- The floor ---------------------------------------------------------------------------------

/// One read, views into it, sorted vectors.
struct Floor {
    struct Value {
        std::string_view name;
        std::string_view text;
    };
    struct Key {
        std::string_view name;
        std::vector<Value> values;
    };
    std::string file;
    std::vector<Key> keys;

    template <typename Item>
    static void Sort(std::vector<Item>& items) {
        const auto isBefore = [](const Item& a, const Item& b) { return a.name < b.name; };
        if (std::is_sorted(items.begin(), items.end(), isBefore)) return;
        std::sort(items.begin(), items.end(), isBefore);
    }

    void Load() {
        const int fd = open(kIni.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (fd < 0 || fstat(fd, &status) != 0) Die("floor");
        file.resize(static_cast<size_t>(status.st_size));
        if (read(fd, file.data(), file.size()) != status.st_size) Die("floor");
        (void)close(fd);
        for (std::string_view rest = file; !rest.empty();) {
            const size_t end = rest.find('\n');
            const std::string_view line = rest.substr(0, end);
            rest.remove_prefix(end + 1);
            if (line.front() == '[') {
                keys.push_back({line.substr(1, line.size() - 2), {}});
            } else {
                const size_t mark = line.find('=');
                keys.back().values.push_back({line.substr(0, mark), line.substr(mark + 1)});
            }
        }
        for (Key& key : keys) Sort(key.values);
        Sort(keys);
    }

    void Save(const std::string& path) const {
        std::string text;
        for (const Key& key : keys) {
            text.append("[").append(key.name).append("]\n");
            for (const Value& value : key.values) {
                text.append(value.name).append("=").append(value.text).append("\n");
            }
        }
        WriteFile(path + ".new", text);
        std::filesystem::rename(path + ".new", path);
    }

    [[nodiscard]] std::string_view Get(std::string_view key, std::string_view name) const {
        const auto found =
            std::lower_bound(keys.begin(), keys.end(), key,
                             [](const Key& a, std::string_view b) { return a.name < b; });
        const auto value =
            std::lower_bound(found->values.begin(), found->values.end(), name,
                             [](const Value& a, std::string_view b) { return a.name < b; });
        return value->text;
    }
};

void LoadFloor(benchmark::State& state) {
    for (auto _ : state) {
        Floor floor;
        Time(state, [&] { floor.Load(); });
    }
}
BENCHMARK(LoadFloor)->UseManualTime();

void LoadFloorFirst(benchmark::State& state) {
    for (auto _ : state) TimeInChild(state, [] { (new Floor)->Load(); });
}
BENCHMARK(LoadFloorFirst)->UseManualTime();

void SaveFloor(benchmark::State& state) {
    Floor floor;
    floor.Load();
    for (auto _ : state) Time(state, [&] { floor.Save(kFolder + "/floor"); });
}
BENCHMARK(SaveFloor)->UseManualTime();

void GetFloor(benchmark::State& state) {
    Floor floor;
    floor.Load();
    Targets targets;
    for (auto _ : state) {
        const int at = targets.Next();
        benchmark::DoNotOptimize(floor.Get("Key0500", targets.Value(at)));
    }
}
BENCHMARK(GetFloor);

// --- GKeyFile ----------------------------------------------------------------------------------

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;

KeyFile NewKeyFile() {
    return {g_key_file_new(), &g_key_file_free};
}

void Load(GKeyFile* file) {
    if (!g_key_file_load_from_file(file, kIni.c_str(), G_KEY_FILE_NONE, nullptr)) Die("GKeyFile");
}

void LoadGKeyFile(benchmark::State& state) {
    for (auto _ : state) {
        const KeyFile file = NewKeyFile();
        Time(state, [&] { Load(file.get()); });
    }
}
BENCHMARK(LoadGKeyFile)->UseManualTime();

void SaveGKeyFile(benchmark::State& state) {
    const KeyFile file = NewKeyFile();
    Load(file.get());
    const std::string path = kFolder + "/gkeyfile";
    for (auto _ : state) {
        Time(state, [&] {
            if (!g_key_file_save_to_file(file.get(), path.c_str(), nullptr)) Die("GKeyFile");
        });
    }
}
BENCHMARK(SaveGKeyFile)->UseManualTime();

void GetGKeyFile(benchmark::State& state) {
    const KeyFile file = NewKeyFile();
    Load(file.get());
    Targets targets;
    for (auto _ : state) {
        char* const text =
            g_key_file_get_string(file.get(), "Key0500", targets.Value(targets.Next()), nullptr);
        benchmark::DoNotOptimize(text);
        g_free(text);
    }
}
BENCHMARK(GetGKeyFile);

// --- inih --------------------------------------------------------------------------------------

struct IniValue {
    std::string section;
    std::string name;
    std::string text;
};

int TakeIniValue(void* values, const char* section, const char* name, const char* text) {
    static_cast<std::vector<IniValue>*>(values)->push_back({section, name, text});
    return 1;
}

void LoadInih(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<IniValue> values;
        Time(state, [&] {
            if (ini_parse(kIni.c_str(), TakeIniValue, &values) != 0) Die("inih");
        });
        if (values.size() != static_cast<size_t>(kKeys) * kValues) state.SkipWithError("lost");
    }
}
BENCHMARK(LoadInih)->UseManualTime();

// --- SQLite ------------------------------------------------------------------------------------

using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

Database OpenDatabase() {
    sqlite3* database = nullptr;
    if (sqlite3_open(kDatabase.c_str(), &database) != SQLITE_OK) Die("SQLite");
    (void)sqlite3_exec(database, "PRAGMA synchronous=off", nullptr, nullptr, nullptr);
    return {database, &sqlite3_close};
}

Statement Prepare(const Database& database, const char* text) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database.get(), text, -1, &statement, nullptr) != SQLITE_OK) {
        Die("SQLite");
    }
    return {statement, &sqlite3_finalize};
}

void Execute(const Database& database, const char* text) {
    if (sqlite3_exec(database.get(), text, nullptr, nullptr, nullptr) != SQLITE_OK) Die("SQLite");
}

void Bind(const Statement& statement, int place, const std::string& text) {
    (void)sqlite3_bind_text(statement.get(), place, text.c_str(), static_cast<int>(text.size()),
                            SQLITE_TRANSIENT);
}

void FillDatabase(const Database& database) {
    Execute(database,
            "BEGIN; DROP TABLE IF EXISTS v;"
            "CREATE TABLE v(key TEXT, name TEXT, text TEXT, PRIMARY KEY(key, name)) WITHOUT ROWID");
    const Statement insert = Prepare(database, "INSERT INTO v VALUES(?, ?, ?)");
    for (int key = 0; key < kKeys; ++key) {
        for (int value = 0; value < kValues; ++value) {
            Bind(insert, 1, KeyName(key));
            Bind(insert, 2, ValueName(value));
            Bind(insert, 3, Text(key, value));
            if (sqlite3_step(insert.get()) != SQLITE_DONE) Die("SQLite");
            (void)sqlite3_reset(insert.get());
        }
    }
    Execute(database, "COMMIT");
}

void ReadDatabase() {
    int rows = 0;
    const Database database = OpenDatabase();
    const Statement select = Prepare(database, "SELECT key, name, text FROM v");
    while (sqlite3_step(select.get()) == SQLITE_ROW) {
        for (int i = 0; i < 3; ++i) {
            benchmark::DoNotOptimize(sqlite3_column_text(select.get(), i));
        }
        ++rows;
    }
    if (rows != kKeys * kValues) Die("SQLite");
}

void LoadSqlite(benchmark::State& state) {
    FillDatabase(OpenDatabase());
    for (auto _ : state) Time(state, ReadDatabase);
}
BENCHMARK(LoadSqlite)->UseManualTime();

void LoadSqliteFirst(benchmark::State& state) {
    FillDatabase(OpenDatabase());
    for (auto _ : state) TimeInChild(state, ReadDatabase);
}
BENCHMARK(LoadSqliteFirst)->UseManualTime();

void SaveSqlite(benchmark::State& state) {
    const Database database = OpenDatabase();
    for (auto _ : state) Time(state, [&] { FillDatabase(database); });
}
BENCHMARK(SaveSqlite)->UseManualTime();

void GetSqlite(benchmark::State& state) {
    const Database database = OpenDatabase();
    FillDatabase(database);
    const Statement select = Prepare(database, "SELECT text FROM v WHERE key='Key0500' AND name=?");
    Targets targets;
    for (auto _ : state) {
        (void)sqlite3_bind_text(select.get(), 1, targets.Value(targets.Next()), -1, SQLITE_STATIC);
        if (sqlite3_step(select.get()) != SQLITE_ROW) state.SkipWithError("missing");
        benchmark::DoNotOptimize(sqlite3_column_text(select.get(), 0));
        (void)sqlite3_reset(select.get());
    }
}
BENCHMARK(GetSqlite);

/// Puts a file system in memory over /opt, which no other process sees.
void EnterOwnFolder() {
    const int flags = geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
    if (unshare(flags) != 0) Die("unshare");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) Die("mount");
    if (mount("tmpfs", "/opt", "tmpfs", 0, nullptr) != 0) Die("mount");
    std::filesystem::create_directories(kFolder);
}

}  // namespace

int main(int argc, char** argv) {
    EnterOwnFolder();
    WriteFile(kRegistry, RegistryText());
    WriteFile(kIni, IniText());
    { const CRegistry first; }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
