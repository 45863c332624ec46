// The order of precedence stands once, in `kNumberRows` and `SettleDirectory`; the ini files are
// read with the trace's own functions. A test compares every value with what the trace itself makes
// of the same directory and environment.

#include "zornctl/system/trace_settings.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "service/version_record.h"
#include "trace/ini_section.h"
#include "zornctl/command_line/arguments.h"
#include "zornctl/output/failure.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/system/whole_file.h"

namespace zornctl {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kGlobalFile = "global_trace.ini";
constexpr std::string_view kGlobalSection = "GlobalDebugSettings";
constexpr std::string_view kDirectoryVariable = "QX_LOG_RINGBUF_DIR";
constexpr std::string_view kDirectoryKey = "RingBufferDirectory";
constexpr size_t kLongestPath = 255;
constexpr size_t kLongestNumber = 64;
constexpr size_t kLargestIniFile = size_t{64} << 20U;

/// A setting that is a number.
struct NumberRow {
    std::string_view name;
    std::string_view title;
    std::string_view variable;  ///< empty: the environment has no say
    std::string_view key;       ///< empty: the ini files have no say
    bool isGlobal;              ///< the key stands in the global section
    uint32_t fallback;
    uint32_t unread;          ///< where nothing is read at all
    bool isRingSize = false;  ///< what is less than 1 counts as 1 when a ring is made
};

constexpr uint32_t kDefaultMaxSize = 20971520;
constexpr std::array kNumberRows{
    NumberRow{"level", "level of the trace", "QX_LOG_DEBUG_LEVEL", "FileDebugLevel", false, 0, 0},
    NumberRow{"log_max_size", "bytes of the log", "QX_LOG_FILE_MAX_SIZE", "", false,
              kDefaultMaxSize, kDefaultMaxSize},
    NumberRow{"dynamic_update", "seconds between updates", "QX_LOG_DYNAMIC_UPDATE", "DynamicUpdate",
              true, 0, 0},
    NumberRow{"ring_factor", "size of the ring, MiB", "TraceFileLimit", "RingBufferSizeFactor",
              false, 1, 1, true},
    NumberRow{"ring_weight", "times this", "QX_LOG_RINGBUF_WEIGHT", "RingBufferSizeWeight", false,
              1, 1, true},
    NumberRow{"no_header", "no header in the log", "QX_LOG_NOHDR_TOSDTERR", "NoHeaderToStderr",
              false, 1, 0},
    NumberRow{"memory_figure", "memory figure in each line", "", "MemoryTracesFlag", false, 1, 0},
    NumberRow{"trace_flags", "flags, without effect", "", "TraceFlags", false, 0, 0},
};

/// A number as the trace takes it: no interval of all ones.
uint32_t Allowed(const NumberRow& row, long value) {
    const auto number = static_cast<uint32_t>(value);
    return row.isGlobal && number == kIniAbsent ? row.fallback : number;
}

/// What a number that was taken comes to.
uint32_t Effective(const NumberRow& row, uint32_t number) {
    return row.isRingSize ? static_cast<uint32_t>(std::max(static_cast<int32_t>(number), 1))
                          : number;
}

/// Variables that begin like those of the trace and are no mistake.
constexpr std::array<std::string_view, 2> kOtherVariables{"QX_LOG_FILE_DIR",
                                                          "QX_LOG_RINGBUF_WEIGHT_ZORN"};

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

/// Whether `text` is decimal digits that make just this number.
bool IsPlainly(std::string_view text, uint32_t number) {
    text = Trim(text);
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos &&
           strtoull(std::string{text}.c_str(), nullptr, 10) == number;
}

std::string CountsAs(std::string_view text, uint32_t number) {
    const auto counts = "counts as " + std::to_string(number);
    if (text.empty()) return "is set but empty: it " + counts;
    return "'" + std::string{text} + "' " + counts + ": it is no decimal number of 32 bits";
}

/// Whether the trailer is there: a section put in front of the file is found then only.
bool HasTrailer(std::string_view text) {
    return FindIniSection(std::string{" [probe]"}.append(text), "probe").has_value();
}

/// A section as the trace will find it.
struct Section {
    const SettingsFile* file;
    std::string_view name;
    std::string_view body;
};

std::optional<Section> FindSection(const SettingsFile& file, std::string_view name) {
    const auto body = file.text ? FindIniSection(*file.text, name) : std::nullopt;
    if (!body) return std::nullopt;
    return Section{&file, name, *body};
}

std::string PlaceOf(const Section& section, std::string_view key) {
    std::string place = section.file->path;
    return place.append(" [").append(section.name).append("] ").append(key);
}

/// Settles the settings of one input.
class Settler {
  public:
    explicit Settler(const SettingsInput& input) : m_Input(input) {}

    TraceSettings Settle() {
        m_IsUnread = input().error == 0 && input().files.empty();
        CheckFiles();
        FindSections();
        SettleDirectory();
        for (const auto& row : kNumberRows) SettleNumber(row);
        CheckVariables();
        m_Result.logPath = m_Result.logDirectory + "/log." + kServiceName;
        m_Result.logPath.resize(std::min(m_Result.logPath.size(), kLongestPath));
        return std::move(m_Result);
    }

  private:
    [[nodiscard]] const SettingsInput& input() const { return m_Input; }

    void Warn(std::string place, std::string cause, std::string remedy) {
        m_Result.warnings.push_back({std::move(place), std::move(cause), std::move(remedy)});
    }

    void CheckFiles() {
        if (m_IsUnread) {
            Warn(input().directory,
                 "the directory holds no ini file: no setting is made, not even the default ones, "
                 "and the environment is not read",
                 "remove the directory, or put an ini file into it");
        }
        for (const auto& file : input().files) {
            if (!file.text) {
                Warn(file.path, "cannot be read: " + file.error, "mend it or remove it");
            } else if (!HasTrailer(*file.text)) {
                Warn(file.path, "does not end with [EndOfFile]: the whole file is ignored",
                     "add [EndOfFile] as its last line");
            }
        }
    }

    void FindSections() {
        for (const auto& file : input().files) {
            if (fs::path{file.path}.filename() == kGlobalFile) {
                m_Global = FindSection(file, kGlobalSection);
            }
            const auto section = FindSection(file, kServiceName);
            if (section && m_Program) {
                Warn(file.path,
                     "has a section [" + std::string{kServiceName} + "] too: only that of " +
                         m_Program->file->path + " is read",
                     "keep one of them");
            }
            if (section && !m_Program) m_Program = section;
        }
        for (const auto& section : {m_Global, m_Program}) {
            if (section) CheckSectionEnd(*section);
        }
    }

    void CheckSectionEnd(const Section& section) {
        const char* const end = section.body.data() + section.body.size();
        const auto& text = *section.file->text;
        if (end == text.data() + text.size() || *end != '[' || section.body.empty()) return;
        if (end[-1] == '\n') return;
        Warn(PlaceOf(section, ""), "a '[' within a line ends the section: what follows is ignored",
             "remove it");
    }

    /// Looks at where a key stands: anything around it means that a comment or another key was met.
    void CheckKey(const Section& section, std::string_view key) {
        const auto body = section.body;
        const auto at = body.find(key);
        const auto equals = at == body.npos ? at : body.find('=', at);
        if (equals == body.npos) return;
        const size_t line = at == 0 ? 0 : body.rfind('\n', at - 1) + 1;  // npos + 1 is 0
        const auto before = Trim(body.substr(line, at - line));
        const auto between = Trim(body.substr(at + key.size(), equals - at - key.size()));
        if (!before.empty() || !between.empty()) {
            Warn(PlaceOf(section, key),
                 "the name is met first inside other text, a comment perhaps, and what is read is "
                 "what follows the next '='",
                 "the format has no comments: remove that text");
        }
        const auto value = body.substr(equals + 1, body.find('\n', equals) - equals - 1);
        if (Trim(value).empty()) {
            Warn(PlaceOf(section, key),
                 "nothing stands behind '=': what the next line holds is read",
                 "give it a value or remove the line");
        }
    }

    void CheckIniNumber(const Section& section, const NumberRow& row) {
        const auto key = row.key;
        CheckKey(section, key);
        const auto text = FindIniText(section.body, key, kLongestNumber);
        if (!text) return;
        const auto number = FindIniNumber(section.body, key);
        const auto digits = Trim(*text);
        if (!number) {
            Warn(PlaceOf(section, key), "a value of all ones counts as if the key were not there",
                 "give it another value or remove the line");
        } else if (digits.starts_with("0x") || digits.starts_with("0X")) {
            return;
        } else if (digits.size() > 1 && digits.starts_with('0')) {
            Warn(PlaceOf(section, key),
                 "a number that begins with 0 is read as octal: it counts as " +
                     std::to_string(Effective(row, *number)),
                 "leave out the 0");
        } else if (!IsPlainly(digits, *number)) {
            Warn(PlaceOf(section, key), CountsAs(digits, Effective(row, *number)),
                 "write decimal digits");
        }
    }

    void CheckMisplaced(const NumberRow& row, const std::optional<Section>& other) {
        if (!other || row.key.empty() || !FindIniText(other->body, row.key, kLongestNumber)) return;
        Warn(PlaceOf(*other, row.key), "is not read in this section",
             row.isGlobal ? "write it into [GlobalDebugSettings] of global_trace.ini"
                          : "write it into [zorn]");
    }

    [[nodiscard]] std::optional<std::string> Variable(std::string_view name) const {
        const auto found = input().environment.find(name);
        if (name.empty() || found == input().environment.end()) return std::nullopt;
        return found->second;
    }

    void CheckNumberVariable(const NumberRow& row, const std::string& text, uint32_t number) {
        if (IsPlainly(text, number)) return;
        Warn(std::string{row.variable}, CountsAs(text, Effective(row, number)),
             "unset it, or give it decimal digits");
    }

    void SettleNumber(const NumberRow& row) {
        Setting setting{row.name, row.title, {}, true, SettingOrigin::kDefault, {}};
        const auto value = m_IsUnread ? row.unread : FindNumber(row, setting);
        if (m_IsUnread) setting.origin = SettingOrigin::kNone;
        setting.value = std::to_string(Effective(row, value));
        if (row.name == "log_max_size") m_Result.logMaxSize = value;
        m_Result.rows.push_back(std::move(setting));
    }

    /// The value of a row, with its origin put into `setting`.
    uint32_t FindNumber(const NumberRow& row, Setting& setting) {
        const auto& section = row.isGlobal ? m_Global : m_Program;
        CheckMisplaced(row, row.isGlobal ? m_Program : m_Global);
        const bool hasKey = section && !row.key.empty();
        if (hasKey) CheckIniNumber(*section, row);
        if (const auto text = Variable(row.variable)) {
            const auto number = Allowed(row, strtol(text->c_str(), nullptr, 10));
            CheckNumberVariable(row, *text, number);
            setting.origin = SettingOrigin::kEnvironment;
            setting.place = row.variable;
            return number;
        }
        const auto number = hasKey ? FindIniNumber(section->body, row.key) : std::nullopt;
        if (!number) return row.fallback;
        setting.origin = SettingOrigin::kFile;
        setting.place = PlaceOf(*section, row.key);
        return *number;
    }

    void SettleDirectory() {
        Setting setting{"directory", "directory of log and ring", {},
                        false,       SettingOrigin::kNone,        {}};
        if (!m_IsUnread) FindDirectory(setting);
        m_Result.logDirectory = setting.value;
        m_Result.rows.push_back(std::move(setting));
    }

    void FindDirectory(Setting& setting) {
        setting.origin = SettingOrigin::kDefault;
        setting.value = kDefaultLogDirectory;
        const auto key =
            m_Program ? FindIniText(m_Program->body, kDirectoryKey, kLongestPath) : std::nullopt;
        if (key) CheckKey(*m_Program, kDirectoryKey);
        if (const auto variable = Variable(kDirectoryVariable)) {
            setting.origin = SettingOrigin::kEnvironment;
            setting.place = kDirectoryVariable;
            setting.value = *variable;
        } else if (key && !key->empty()) {
            setting.origin = SettingOrigin::kFile;
            setting.place = PlaceOf(*m_Program, kDirectoryKey);
            setting.value = *key;
        }
        CheckDirectory(setting);
    }

    void CheckDirectory(Setting& setting) {
        const auto& value = setting.value;
        if (value.empty()) {
            Warn(setting.place, "is set but empty: the log goes to the root directory",
                 "unset it, or give it a directory");
        } else if (value.front() != '/') {
            Warn(setting.place, "'" + value + "' begins where the service is started",
                 "give it a path that begins with /");
        }
        if (!value.empty() && Trim(value).size() != value.size()) {
            Warn(setting.place,
                 "blanks or a carriage return at the ends of the value belong to the path",
                 "remove them");
        }
        if (value.size() > kLongestPath) {
            Warn(setting.place, "is longer than 255 bytes: the path is cut there", "shorten it");
            setting.value.resize(kLongestPath);
        }
    }

    void CheckVariables() {
        if (Variable("QX_LOG_FILE_DIR")) {
            Warn("QX_LOG_FILE_DIR", "is read and has no effect",
                 "set QX_LOG_RINGBUF_DIR, which names the directory of log and ring");
        }
        std::vector<std::string_view> known{kOtherVariables.begin(), kOtherVariables.end()};
        known.push_back(kDirectoryVariable);
        for (const auto& row : kNumberRows) known.push_back(row.variable);
        for (const auto& [name, value] : input().environment) {
            if (!name.starts_with("QX_LOG_")) continue;
            if (std::find(known.begin(), known.end(), name) != known.end()) continue;
            const auto nearest = NearestName(name, known);
            Warn(name, "is no variable of the trace",
                 nearest.empty() ? "unset it" : "did you mean " + std::string{nearest} + "?");
        }
    }

    const SettingsInput& m_Input;
    TraceSettings m_Result;
    bool m_IsUnread = false;
    std::optional<Section> m_Global;
    std::optional<Section> m_Program;
};

/// The names that the trace takes for ini files.
bool IsIniName(const std::string& name) {
    return !name.starts_with(".#") && name.find(".ini") != name.npos;
}

SettingsFile ReadSettingsFile(const std::string& path) {
    try {
        return {path, ReadWholeFile(path, kLargestIniFile), {}};
    } catch (const Failure& failure) {
        return {path, std::nullopt, failure.cause};
    }
}

}  // namespace

TraceSettings SettleTraceSettings(const SettingsInput& input) {
    return Settler{input}.Settle();
}

SettingsInput ReadSettingsInput(const std::string& directory, Environment environment) {
    SettingsInput input{directory, 0, {}, std::move(environment)};
    std::error_code error;
    for (fs::directory_iterator entry{directory, error}, end; !error && entry != end;
         entry.increment(error)) {
        const auto path = entry->path();
        if (IsIniName(path.filename().native())) {
            input.files.push_back(ReadSettingsFile(path.native()));
        }
    }
    input.error = error.value();
    if (error) input.files.clear();
    std::sort(input.files.begin(), input.files.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    return input;
}

Environment OwnEnvironment() {
    std::string text;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        text.append(*entry).push_back('\0');
    }
    return ParseEnvironment(text);
}

Environment EnvironmentOf(uint32_t pid) {
    constexpr size_t kLargestEnvironment = size_t{64} << 20U;
    const std::string directory = "/proc/" + std::to_string(pid);
    std::error_code error;
    if (!fs::exists(directory, error)) {
        throw Failure{ExitStatus::kNotFound, directory, "no such process",
                      "zornctl doctor tells the number of the service"};
    }
    return ParseEnvironment(ReadWholeFile(directory + "/environ", kLargestEnvironment));
}

Environment ParseEnvironment(std::string_view text) {
    Environment environment;
    while (!text.empty()) {
        const auto entry = text.substr(0, text.find('\0'));
        text.remove_prefix(std::min(entry.size() + 1, text.size()));
        const auto equals = entry.find('=');
        if (equals == entry.npos) continue;
        environment.emplace(entry.substr(0, equals), entry.substr(equals + 1));
    }
    return environment;
}

}  // namespace zornctl
