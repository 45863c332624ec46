#include "zornctl/command_line/arguments.h"

#include <algorithm>
#include <charconv>

namespace zornctl {

namespace {

constexpr size_t kMostDigits = 9;

Failure WrongUse(std::string cause, std::string remedy) {
    return {ExitStatus::kWrongUse, {}, std::move(cause), std::move(remedy)};
}

std::string Quoted(std::string_view text) {
    return std::string{"'"}.append(text).append("'");
}

std::string HelpFor(const CommandRow* command) {
    if (command == nullptr) return "see zornctl --help";
    return std::string{"see zornctl help "}.append(command->name);
}

/// What to do about a name that is not there.
std::string Suggestion(std::string_view name, const std::vector<std::string_view>& names,
                       std::string_view front, const CommandRow* command) {
    const auto nearest = NearestName(name, names);
    if (nearest.empty()) return HelpFor(command);
    return std::string{"did you mean "}.append(front).append(nearest).append("?");
}

std::vector<std::string_view> CommandNames() {
    std::vector<std::string_view> names;
    for (const auto& row : Commands()) {
        if (!row.isHidden) names.push_back(row.name);
    }
    return names;
}

bool IsNumber(std::string_view text) {
    return !text.empty() && text.size() <= kMostDigits &&
           text.find_first_not_of("0123456789") == text.npos;
}

/// No option's letter is a digit, so that a negative number is an operand.
bool IsOption(std::string_view word) {
    return word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9');
}

/// How much has to be changed to make one name of the other (letters added, left out, replaced, or
/// swapped with their neighbour).
size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<size_t>> cost(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) cost[i][0] = i;
    for (size_t j = 0; j <= b.size(); ++j) cost[0][j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, replaced});
            const bool isSwap = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (isSwap) cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost[a.size()][b.size()];
}

}  // namespace

/// Goes over the words of a command line.
class Arguments::Reader {
  public:
    explicit Reader(const std::vector<std::string_view>& words) : m_Words(words) {}

    Arguments Read() {
        while (m_At < m_Words.size()) {
            const auto word = m_Words[m_At++];
            if (m_OptionsEnded || !IsOption(word))
                TakeWord(word);
            else if (word == "--")
                m_OptionsEnded = true;
            else if (word.starts_with("--"))
                TakeName(word.substr(2));
            else
                TakeLetters(word.substr(1));
        }
        CheckAction();
        return std::move(m_Result);
    }

  private:
    /// A word that is no option: the subcommand, its action, then the operands.
    void TakeWord(std::string_view word) {
        if (m_Result.m_Command == nullptr) return TakeCommand(word);
        if (!m_Result.m_Command->actions.empty() && m_Result.m_Action == nullptr) {
            return TakeAction(word);
        }
        const auto rows = m_Result.OperandRows();
        size_t place = m_Result.m_Operands.size();
        if (place >= rows.size() && !rows.empty() && rows.back().isRepeated) {
            place = rows.size() - 1;
        }
        if (place >= rows.size()) {
            throw WrongUse("one argument too many: " + Quoted(word), HelpFor(m_Result.m_Command));
        }
        CheckOperand(rows[place], word);
        m_Result.m_Operands.emplace_back(word);
    }

    void TakeAction(std::string_view word) {
        m_Result.m_Action = FindAction(*m_Result.m_Command, word);
        if (m_Result.m_Action != nullptr) return;
        std::vector<std::string_view> names;
        for (const auto& row : m_Result.m_Command->actions) names.push_back(row.name);
        throw WrongUse("no ACTION " + Quoted(word),
                       Suggestion(word, names, "", m_Result.m_Command));
    }

    /// An option may stand before the action, so this is known at the end.
    void CheckAction() const {
        if (m_Result.m_Action == nullptr) return;
        for (const auto& [name, value] : m_Result.m_Options) {
            const auto actions = Find(name).actions;
            const auto found = std::find(actions.begin(), actions.end(), m_Result.m_Action->name);
            if (actions.empty() || found != actions.end()) continue;
            throw WrongUse("--" + name + " is not for " + m_Result.Subject(),
                           HelpFor(m_Result.m_Command));
        }
    }

    void TakeCommand(std::string_view word) {
        m_Result.m_Command = FindCommand(word);
        if (m_Result.m_Command == nullptr) {
            throw WrongUse("no subcommand " + Quoted(word),
                           Suggestion(word, CommandNames(), "", nullptr));
        }
        for (const auto& [name, value] : m_Result.m_Options) (void)Find(name);
    }

    void CheckOperand(const OperandRow& row, std::string_view word) const {
        std::vector<std::string_view> known{row.words.begin(), row.words.end()};
        if (row.kind == ValueKind::kCommand) known = CommandNames();
        if (known.empty() || std::find(known.begin(), known.end(), word) != known.end()) return;
        if (row.kind == ValueKind::kCommand && FindCommand(word) != nullptr) return;
        throw WrongUse("no " + std::string{row.name} + " " + Quoted(word),
                       Suggestion(word, known, "", m_Result.m_Command));
    }

    /// The rows that may stand here: before the subcommand is known, those of all.
    [[nodiscard]] std::vector<const OptionRow*> Rows() const {
        std::vector<const OptionRow*> rows;
        const auto add = [&](std::span<const OptionRow> options) {
            for (const auto& row : options) rows.push_back(&row);
        };
        add(CommonOptions());
        if (m_Result.m_Command != nullptr) {
            add(m_Result.m_Command->options);
            return rows;
        }
        add(ProgramOptions());
        for (const auto& command : Commands()) add(command.options);
        return rows;
    }

    [[nodiscard]] const OptionRow& Find(std::string_view name) const {
        std::vector<std::string_view> names;
        for (const OptionRow* row : Rows()) {
            if (row->name == name) return *row;
            names.push_back(row->name);
        }
        throw WrongUse("no option " + Quoted("--" + std::string{name}),
                       Suggestion(name, names, "--", m_Result.m_Command));
    }

    [[nodiscard]] const OptionRow& FindLetter(char letter) const {
        for (const OptionRow* row : Rows()) {
            if (row->letter == letter) return *row;
        }
        throw WrongUse("no option " + Quoted(std::string{'-', letter}),
                       HelpFor(m_Result.m_Command));
    }

    void TakeName(std::string_view word) {
        const auto equals = word.find('=');
        const OptionRow& row = Find(word.substr(0, equals));
        if (equals == word.npos) {
            Store(row, row.kind == ValueKind::kNone ? std::string_view{} : NextWord(row));
        } else if (row.kind == ValueKind::kNone) {
            throw WrongUse("--" + std::string{row.name} + " takes no value",
                           HelpFor(m_Result.m_Command));
        } else {
            Store(row, word.substr(equals + 1));
        }
    }

    /// One letter behind the other; what stands behind one that takes a value is that value.
    void TakeLetters(std::string_view letters) {
        while (!letters.empty()) {
            const OptionRow& row = FindLetter(letters.front());
            letters.remove_prefix(1);
            if (row.kind == ValueKind::kNone) {
                Store(row, {});
            } else {
                Store(row, letters.empty() ? NextWord(row) : letters);
                return;
            }
        }
    }

    std::string_view NextWord(const OptionRow& row) {
        if (m_At == m_Words.size()) {
            throw WrongUse("--" + std::string{row.name} + " needs " + std::string{row.valueName},
                           HelpFor(m_Result.m_Command));
        }
        return m_Words[m_At++];
    }

    void CheckWord(const OptionRow& row, std::string_view value) const {
        const std::vector<std::string_view> known{row.words.begin(), row.words.end()};
        if (std::find(known.begin(), known.end(), value) != known.end()) return;
        throw WrongUse("no " + std::string{row.valueName} + " " + Quoted(value),
                       Suggestion(value, known, "", m_Result.m_Command));
    }

    void Store(const OptionRow& row, std::string_view value) {
        if (row.kind == ValueKind::kWord) CheckWord(row, value);
        const bool isNumber = row.kind == ValueKind::kNumber || row.kind == ValueKind::kProcess;
        if (isNumber && !IsNumber(value)) {
            throw WrongUse("--" + std::string{row.name} + " needs a number, not " + Quoted(value),
                           HelpFor(m_Result.m_Command));
        }
        m_Result.m_Options.insert_or_assign(std::string{row.name}, std::string{value});
    }

    const std::vector<std::string_view>& m_Words;
    size_t m_At = 0;
    bool m_OptionsEnded = false;
    Arguments m_Result;
};

Arguments Arguments::Parse(const std::vector<std::string_view>& words) {
    return Reader{words}.Read();
}

std::optional<std::string> Arguments::Value(std::string_view option) const {
    const auto found = m_Options.find(option);
    return found == m_Options.end() ? std::nullopt : std::optional{found->second};
}

std::optional<uint32_t> Arguments::Number(std::string_view option) const {
    const auto text = Value(option);
    if (!text) return std::nullopt;
    uint32_t number = 0;
    (void)std::from_chars(text->data(), text->data() + text->size(), number);
    return number;
}

std::optional<std::string> Arguments::Operand(size_t place) const {
    return place < m_Operands.size() ? std::optional{m_Operands[place]} : std::nullopt;
}

std::span<const OperandRow> Arguments::OperandRows() const {
    return m_Action != nullptr ? m_Action->operands : m_Command->operands;
}

/// "registry get"
std::string Arguments::Subject() const {
    std::string subject{m_Command->name};
    if (m_Action != nullptr) subject.append(" ").append(m_Action->name);
    return subject;
}

void Arguments::CheckComplete() const {
    const bool needsAction = !m_Command->actions.empty() && m_Action == nullptr;
    if (needsAction) throw WrongUse(Subject() + " needs ACTION", HelpFor(m_Command));
    const auto rows = OperandRows();
    const size_t place = m_Operands.size();
    if (place >= rows.size() || !rows[place].isRequired) return;
    throw WrongUse(Subject() + " needs " + std::string{rows[place].name}, HelpFor(m_Command));
}

std::string_view NearestName(std::string_view name, const std::vector<std::string_view>& names) {
    std::string_view nearest;
    size_t least = std::max<size_t>(name.size() / 3, 1) + 1;
    for (const auto each : names) {
        const bool isBeginning = name.size() >= 2 && each.starts_with(name);
        const size_t distance = isBeginning ? 0 : Distance(name, each);
        if (distance < least) {
            nearest = each;
            least = distance;
        }
    }
    return nearest;
}

}  // namespace zornctl
