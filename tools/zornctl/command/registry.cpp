// An action is a function that has the tree; `kActions` are their names. Those that write change it, and
// it is saved behind them if its text is another one then.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "registry/registry_node.h"
#include "zornctl/command/commands.h"
#include "zornctl/output/escape.h"
#include "zornctl/output/table.h"
#include "zornctl/registry/lost_lines.h"
#include "zornctl/registry/registry_directory.h"
#include "zornctl/registry/registry_tree.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/system/service_processes.h"
#include "zornctl/system/whole_file.h"

namespace zornctl {

namespace {

using nlohmann::ordered_json;

constexpr std::array kHives{std::string_view{"HKEY_LOCAL_MACHINE"},
                            std::string_view{"HKEY_CURRENT_USER"}, std::string_view{"HKEY_USERS"},
                            std::string_view{"HKEY_CLASSES_ROOT"},
                            std::string_view{"HKEY_CURRENT_CONFIG"}};

/// What an action works with.
struct Call {
    const Arguments& arguments;
    Output& output;
    RegistryDirectory directory;
    CRegistryNode tree = {};
    RegistrySource source = {};
    std::string text = {};            ///< that is imported
    std::vector<LostLine> lost = {};  ///< of that

    [[nodiscard]] std::string Word(size_t place) const {
        return arguments.Operand(place).value_or(std::string{});
    }
    [[nodiscard]] KeyPath Path() const { return SplitKeyPath(Word(0)); }
    [[nodiscard]] std::string ImportedFile() const { return OperandName(Word(0)); }

    [[nodiscard]] Failure NotFound(std::string cause, std::string remedy) const {
        return {ExitStatus::kNotFound, source.path, std::move(cause), std::move(remedy)};
    }
};

// --- Finding -------------------------------------------------------------------------------------

/// The beginning of a path that is there.
KeyPath Existing(CRegistryNode& tree, KeyPath path) {
    while (FindKey(tree, path) == nullptr) path.pop_back();
    return path;
}

/// "zornctl registry ACTION KEY" for a shell, to which a backslash means something.
std::string CallFor(std::string_view action, const KeyPath& path) {
    std::string line = "zornctl registry " + std::string{action};
    if (path.empty()) return line;
    line += " '";
    for (const char c : JoinKeyPath(path)) line += c == '\'' ? "'\\''" : std::string{c};
    return line + "'";
}

CRegistryNode& KeyAt(Call& call, const KeyPath& path) {
    CRegistryNode* const key = FindKey(call.tree, path);
    if (key != nullptr) return *key;
    const auto parent = Existing(call.tree, path);
    throw call.NotFound("no key " + JoinKeyPath(path), "see " + CallFor("list", parent));
}

RegistryItem ValueAt(Call& call, const KeyPath& path, const std::string& name) {
    auto item = FindItem(KeyAt(call, path), name);
    if (!item) {
        throw call.NotFound("no value '" + name + "' in " + JoinKeyPath(path),
                            "see " + CallFor("list", path));
    }
    if (item->key == nullptr) return std::move(*item);
    auto below = path;
    below.push_back(name);
    throw call.NotFound("'" + name + "' is a key", "name it as KEY alone: " + JoinKeyPath(below));
}

// --- Showing -------------------------------------------------------------------------------------

/// A text as a member, and in another one whether its bytes are no UTF-8 and so it stands escaped.
void AddText(ordered_json& object, const char* member, std::string_view text, const char* mark) {
    const bool isEscaped = !IsUtf8(text);
    object[member] = isEscaped ? EscapeReversibly(text) : std::string{text};
    object[mark] = isEscaped;
}

void AddValue(ordered_json& object, const RegistryItem& item) {
    const auto& value = item.value;
    AddText(object, "name", item.name, "name_escaped");
    object["type"] = NameOfType(value.type);
    if (item.key != nullptr) {
        object["value"] = nullptr;
    } else if (value.type == kRegistryDoubleWord) {
        object["value"] = value.number;
    } else {
        return AddText(object, "value", FormatRegistryValue(value), "escaped");
    }
    object["escaped"] = false;
}

ordered_json SourceObject(const Call& call, const KeyPath& path) {
    ordered_json object{{"action", call.arguments.Action()->name},
                        {"path", JsonText(call.source.path)},
                        {"note", JsonText(call.source.note)}};
    AddText(object, "key", JoinKeyPath(path), "key_escaped");
    return object;
}

/// Calls `show` for a key and, if it is wished for, for those below it in the order of their names.
template <typename Show>
void Walk(CRegistryNode& top, const KeyPath& path, bool isRecursive, Show show) {
    std::vector<std::pair<CRegistryNode*, KeyPath>> open{{&top, path}};
    while (!open.empty()) {
        const auto [key, at] = std::move(open.back());
        open.pop_back();
        const auto items = ItemsOf(*key);
        show(at, items);
        if (!isRecursive) return;
        for (size_t place = items.size(); place-- > 0;) {
            if (items[place].key == nullptr) continue;
            open.emplace_back(items[place].key, at);
            open.back().second.push_back(items[place].name);
        }
    }
}

void List(Call& call) {
    const auto path = call.Path();
    CRegistryNode& key = KeyAt(call, path);
    const bool isRecursive = call.arguments.Has("recursive");
    auto objects = ordered_json::array();
    std::vector<std::vector<Cell>> rows;
    Walk(key, path, isRecursive, [&](const KeyPath& at, const std::vector<RegistryItem>& items) {
        const auto shown = JoinKeyPath(at);
        for (const auto& item : items) {
            if (call.output.IsJson()) {
                AddText(objects.emplace_back(), "key", shown, "key_escaped");
                AddValue(objects.back(), item);
                continue;
            }
            const auto type = NameOfType(item.value.type);
            const auto value = item.key != nullptr ? "" : FormatRegistryValue(item.value);
            rows.push_back({item.name, type, value});
            if (isRecursive) rows.back().insert(rows.back().begin(), shown);
        }
    });
    if (call.output.IsJson()) {
        auto object = SourceObject(call, path);
        object["entries"] = std::move(objects);
        call.output.WriteJson(object);
    } else {
        std::vector<std::string> titles{"NAME", "TYPE", "VALUE"};
        if (isRecursive) titles.insert(titles.begin(), "KEY");
        call.output.WriteText(FormatTable(titles, rows, call.output.Style()));
    }
}

void Get(Call& call) {
    const auto path = call.Path();
    const auto item = ValueAt(call, path, call.Word(1));
    if (call.output.IsJson()) {
        auto object = SourceObject(call, path);
        AddValue(object, item);
        call.output.WriteJson(object);
    } else {
        call.output.WriteText(Escape(FormatRegistryValue(item.value)) + "\n");
    }
}

/// The text with only its newlines as they are.
std::string EscapeLines(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto line = text.substr(0, text.find('\n'));
        out.append(Escape(line)).append("\n");
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return out;
}

void Export(Call& call) {
    const auto path = call.Path();
    const auto text = TextOf(KeyAt(call, path), path);
    if (call.output.IsJson()) {
        auto object = SourceObject(call, path);
        AddText(object, "text", text, "escaped");
        call.output.WriteJson(object);
    } else {
        call.output.WriteText(isatty(STDOUT_FILENO) == 0 ? text : EscapeLines(text));
    }
}

// --- Changing ------------------------------------------------------------------------------------

void Set(Call& call) {
    const auto path = call.Path();
    const auto name = call.Word(1);
    const auto type = call.arguments.Value("type").value_or("string");
    const auto value = ParseRegistryValue(type, call.Word(2));
    (void)FormatRegistryLine(name, value);
    CRegistryNode* const key = FindKey(call.tree, path);
    if (key == nullptr) {
        throw call.NotFound("no key " + JoinKeyPath(path), "make it: " + CallFor("create", path));
    }
    const auto item = FindItem(*key, name);
    if (item && item->key != nullptr) {
        throw call.NotFound("'" + name + "' is a key, which a value would replace",
                            "delete the key first, or take another name");
    }
    PutValue(*key, name, value);
}

void DeleteKey(Call& call, KeyPath path) {
    CRegistryNode& key = KeyAt(call, path);
    const auto items = ItemsOf(key);
    const bool hasKeys = std::any_of(items.begin(), items.end(),
                                     [](const RegistryItem& item) { return item.key != nullptr; });
    if (hasKeys && !call.arguments.Has("recursive")) {
        throw call.NotFound(JoinKeyPath(path) + " has subkeys",
                            "add --recursive to take them away too");
    }
    const auto name = path.back();
    path.pop_back();
    RemoveItem(KeyAt(call, path), name);
}

void Delete(Call& call) {
    const auto path = call.Path();
    if (const auto name = call.arguments.Operand(1)) {
        (void)ValueAt(call, path, *name);
        RemoveItem(KeyAt(call, path), *name);
    } else if (path.empty()) {
        throw Failure{ExitStatus::kWrongUse, {}, "the root cannot be deleted", "name a key"};
    } else {
        DeleteKey(call, path);
    }
}

/// A key that no handle of the service would look for is a slip of the pen.
void CheckHive(Call& call, const std::string& name, ExitStatus status, const std::string& file) {
    const bool isHive = std::find(kHives.begin(), kHives.end(), name) != kHives.end();
    const bool isForced = call.arguments.Has("force");
    if (isHive || isForced || call.tree.FindChild(name.c_str()) != nullptr) return;
    const auto nearest = NearestName(name, {kHives.begin(), kHives.end()});
    std::string all;
    for (const auto hive : kHives) all.append(all.empty() ? "" : ", ").append(hive);
    throw Failure{status, file, "no hive '" + name + "'",
                  (nearest.empty() ? "the hives are " + all + ";"
                                   : "did you mean " + std::string{nearest} + "?") +
                      " --force takes it as it is"};
}

void Create(Call& call) {
    const auto path = call.Path();
    if (path.empty()) throw Failure{ExitStatus::kWrongUse, {}, "KEY is empty", "name a key"};
    CheckHive(call, path[0], ExitStatus::kWrongUse, {});
    (void)MakeKey(call.tree, path);
}

void CheckLostLines(const Call& call) {
    const auto key = std::find_if(call.lost.begin(), call.lost.end(),
                                  [](const LostLine& line) { return line.isKey; });
    if (key != call.lost.end()) {
        throw Failure{
            ExitStatus::kNotFound, call.ImportedFile(),
            FormatLostLines({*key}) + ": what is in that key would get into the one above it",
            "mend that line"};
    }
    if (call.lost.empty() || call.arguments.Has("force")) return;
    throw Failure{ExitStatus::kNotFound, call.ImportedFile(), FormatLostLines(call.lost),
                  "mend that, or add --force to go on without"};
}

void ReadImported(Call& call) {
    call.text = ReadOperand(call.Word(0), kLargestRegistry);
    call.lost = FindLostLines(call.text);
    CheckLostLines(call);
}

void CheckConflict(Call& call, CRegistryNode& added) {
    const auto conflict = FindConflict(call.tree, added);
    if (!conflict || call.arguments.Has("force")) return;
    throw Failure{ExitStatus::kNotFound, call.ImportedFile(),
                  JoinKeyPath(*conflict) + " is a key here and a value there",
                  "delete one of the two, or add --force to replace what is there"};
}

void Import(Call& call) {
    CRegistryNode added;
    ReadText(added, WithoutBrokenLines(call.text));
    const auto items = ItemsOf(added);
    if (items.empty()) {
        throw Failure{ExitStatus::kNotFound, call.ImportedFile(), "holds neither a key nor a value",
                      "name a file that zornctl registry export has written"};
    }
    for (const auto& item : items) {
        if (item.key == nullptr) continue;
        CheckHive(call, item.name, ExitStatus::kNotFound, call.ImportedFile());
    }
    CheckConflict(call, added);
    Merge(call.tree, added);
}

// --- Around the actions --------------------------------------------------------------------------

void RefuseWhileRunning(const Call& call) {
    if (call.arguments.Has("while-running") || !call.directory.IsOfService()) return;
    const auto processes = FindServiceProcesses();
    if (processes.empty()) return;
    throw Failure{ExitStatus::kNotFound, call.directory.Path(),
                  "the service runs (process " + std::to_string(processes[0].pid) +
                      "): it would not see the change, and undo it with its next save",
                  "stop it first, or add --while-running"};
}

void TellNote(const Call& call) {
    if (!call.source.note.empty()) Output::WriteNote(call.source.note);
}

/// The file becomes registry.old, and goes with the next change.
void RefuseLoss(const Call& call) {
    if (call.source.lost.empty() || call.arguments.Has("force")) return;
    throw Failure{ExitStatus::kNotFound, call.source.path,
                  "a change would take away what is not as the service writes it: " +
                      FormatLostLines(call.source.lost),
                  "mend that, or add --force to go on without"};
}

void Save(Call& call, bool hadValues) {
    RefuseLoss(call);
    if (hadValues && !HasValues(call.tree)) {
        throw Failure{ExitStatus::kNotFound, call.directory.Path(),
                      "no value would be left: the service would take registry.old instead",
                      "set another value first, or remove the files"};
    }
    RefuseWhileRunning(call);  // once more: much time may have gone by
    call.directory.Save(call.tree);
}

void WriteChange(Call& call, bool isChanged) {
    if (!call.output.IsJson()) {
        if (!call.lost.empty()) Output::WriteNote("left out: " + FormatLostLines(call.lost));
        return;
    }
    const bool isImport = call.arguments.Action()->name == "import";
    auto object = SourceObject(call, isImport ? KeyPath{} : call.Path());
    object["path"] = JsonText(call.directory.Path());
    object["changed"] = isChanged;
    object["lost"] = ordered_json::array();
    for (const auto& line : call.lost) {
        object["lost"].push_back({{"line", line.number}, {"reason", line.reason}});
    }
    call.output.WriteJson(object);
}

struct ActionFunction {
    std::string_view name;
    void (*run)(Call& call);
    bool isWriting;
    void (*prepare)(Call& call) = nullptr;  ///< what may take long: others need not wait for it
};

constexpr std::array kActions{
    ActionFunction{"list", List, false},
    ActionFunction{"get", Get, false},
    ActionFunction{"set", Set, true},
    ActionFunction{"delete", Delete, true},
    ActionFunction{"create", Create, true},
    ActionFunction{"export", Export, false},
    ActionFunction{"import", Import, true, ReadImported},
};

void Show(Call& call, const ActionFunction& action) {
    call.source = call.directory.Read(call.tree);
    if (!call.source.isFound && ItemsOf(call.tree).empty()) {
        throw Failure{ExitStatus::kNotFound,
                      {},
                      call.source.note,
                      "see zornctl doctor, or name another directory with --directory"};
    }
    TellNote(call);
    action.run(call);
}

void Change(Call& call, const ActionFunction& action) {
    RefuseWhileRunning(call);
    if (action.prepare != nullptr) action.prepare(call);
    call.directory.Lock();
    call.source = call.directory.Read(call.tree);
    TellNote(call);
    const bool hadValues = HasValues(call.tree);
    const auto before = TextOf(call.tree);
    action.run(call);
    const bool isChanged = TextOf(call.tree) != before;
    if (isChanged) Save(call, hadValues);
    WriteChange(call, isChanged);
}

}  // namespace

ExitStatus RunRegistry(const Arguments& arguments, Output& output) {
    Call call{arguments, output,
              RegistryDirectory{arguments.Value("directory").value_or(kRegistryDirectory)}};
    const auto* const action = std::find_if(
        kActions.begin(), kActions.end(),
        [&](const ActionFunction& row) { return row.name == arguments.Action()->name; });
    action->isWriting ? Change(call, *action) : Show(call, *action);
    return ExitStatus::kDone;
}

}  // namespace zornctl
