// A ring file (trace/ring_buffer.cpp) holds
//
//     header, mark | blocks as made | begin line | newest pass, mark | rest of the former pass |
//     dots
//
// 1. The begin line stands at a multiple of 1,024. The header ends with its last line. Where that
//    is not in front of the first mark, a wrap was interrupted: behind the mark go on the lines of
//    the former header.
// 2. A file that ends with a block as it was made is in its first pass: nothing older is there.
//    What was never written is found from the end, block by block.
// 3. The mark of the newest line stands at the beginning of a line. A text may hold such a line
//    too: the right one has the largest step back in time behind it, or no time at all.
// 4. A writer that was killed within a line has left that line behind the mark without its first 16
//    bytes, and perhaps a mark behind it. One that was killed at the end of a wrap has left a mark
//    at the very beginning of the lines, and perhaps that of the former pass at their end.
// 5. Without a mark (a file that was read while it was written, or lost a part with the machine)
//    the time stamps tell alone (FindPassEnd).

#include "zornctl/order/order_ring.h"

#include <algorithm>
#include <cstdint>

#include "zornctl/order/pass_end.h"

namespace zornctl {

namespace {

constexpr size_t kBlockSize = 1024;
constexpr size_t kLongestPrefix = 128;
constexpr std::string_view kBeginText = "### Begin of RingBuffer. ###";
constexpr std::string_view kHeaderEndText = "# End of header.";

std::string_view TextBehindPrefix(std::string_view line) {
    const auto bare = BareLine(line);
    const auto prefix = ParseTracePrefix(bare);
    return prefix ? bare.substr(prefix->length) : std::string_view{};
}

/// The begin line of a ring; empty if there is none.
std::string_view FindBeginLine(std::string_view file) {
    for (size_t at = 0; at < file.size(); at += kBlockSize) {
        auto block = file.substr(at, kBlockSize);
        const auto line = TakeLine(block);
        if (TextBehindPrefix(line) == kBeginText) return line;
    }
    return {};
}

/// A line of a prefix and underscores.
bool IsBlockAsMade(std::string_view block) {
    const auto text = TextBehindPrefix(block);
    const bool isLine = block.find('\n') + 1 == block.size();
    return isLine && block.ends_with("_\n") && !text.empty() &&
           text.find_first_not_of('_') == text.npos;
}

/// What is left of the last block in `text`, which a newer line has cut: how many bytes.
/// REQUIRES: `text` ends where a block ends.
size_t RestOfBlock(std::string_view text) {
    const auto block = text.substr(text.size() - std::min(text.size(), kBlockSize));
    if (block.ends_with("\n\n")) return 1;
    if (!block.ends_with("_\n")) return 0;
    const size_t line = block.rfind('\n', block.size() - 2) + 1;  // npos + 1 is 0
    const size_t underscores = block.find_last_not_of('_', block.size() - 2) + 1;
    const size_t inBlock = underscores + (kBlockSize - block.size());
    const bool isRestOfPrefix = line != 0 && inBlock <= kLongestPrefix;
    return block.size() - (isRestOfPrefix ? line : underscores);
}

/// `text` without the blocks as they were made at its end and what is left of one in front of them.
/// REQUIRES: `text` ends where a block ends.
std::string_view WithoutBlocks(std::string_view text) {
    if (!text.ends_with("_\n")) return text;
    while (text.size() >= kBlockSize && IsBlockAsMade(text.substr(text.size() - kBlockSize))) {
        text.remove_suffix(kBlockSize);
    }
    text.remove_suffix(RestOfBlock(text));
    return text;
}

/// `text` without the dots that stand behind the last line of a pass. Where a wrap was interrupted,
/// the newline of the last block is still there.
std::string_view WithoutDots(std::string_view text) {
    const auto dots = text.ends_with(".\n") ? text.substr(0, text.size() - 1) : text;
    const size_t size = dots.find_last_not_of('.') + 1;  // npos + 1 is 0
    const bool isWholeLine = size == 0 || text[size - 1] == '\n';
    return isWholeLine ? text.substr(0, size) : text;
}

/// Goes over the lines of the ring proper and keeps the mark that most speaks for.
class MarkSearch {
  public:
    /// `behind` is what follows the mark. A line in the making has a mark behind it, too: that one
    /// does not count.
    void TakeMark(size_t at, std::string_view behind) {
        if (!m_IsBeforeRest) m_Pending = at;
        m_IsBeforeRest = m_IsBeforeRest || IsRestOfPrefix(behind);
    }

    void TakeTime(int64_t time) {
        if (m_Former)
            Weigh(*m_Former > time ? 1 + (*m_Former - time) : 0);
        else
            Weigh(0);
        m_Former = time;
    }

    [[nodiscard]] std::optional<size_t> Best() {
        Weigh(1);  // a mark with no time behind it
        return m_Best;
    }

  private:
    void Weigh(int64_t weight) {
        if (m_Pending && weight >= m_Weight) {
            m_Best = m_Pending;
            m_Weight = weight;
        }
        m_Pending.reset();
        m_IsBeforeRest = false;
    }

    std::optional<size_t> m_Pending;  ///< the last mark since the last time
    bool m_IsBeforeRest = false;      ///< and behind it begins the rest of a line
    std::optional<int64_t> m_Former;
    std::optional<size_t> m_Best;
    int64_t m_Weight = 0;
};

/// The mark, also if its beginning was lost to the next line or to the dots of a wrap, and the
/// writer was killed there.
bool IsMark(std::string_view line) {
    if (line.size() != kEndMark.size()) return false;
    size_t kept = line.size();
    while (kept > 0 && line[kept - 1] == kEndMark[kept - 1]) --kept;
    const auto lost = line.substr(0, kept);
    return kept < line.size() &&
           (lost.find_first_not_of('.') == lost.npos || IsBeginningOfPrefix(lost));
}

std::optional<size_t> FindMark(std::string_view text) {
    if (text.starts_with(kEndMark)) return 0;
    MarkSearch search;
    for (auto rest = text; !rest.empty();) {
        const size_t at = text.size() - rest.size();
        const auto line = TakeLine(rest);
        if (IsMark(line)) search.TakeMark(at, rest);
        if (const auto time = StampMilliseconds(StampOf(line))) search.TakeTime(*time);
    }
    return search.Best();
}

void Add(RingOrder& order, const TracePiece& piece) {
    if (!piece.text.empty()) order.pieces.push_back(piece);
}

void AddHeader(RingOrder& order, std::string_view header) {
    const auto whole = WithoutBlocks(header);
    size_t begin = 0;
    for (auto rest = whole; !rest.empty();) {
        const size_t at = whole.size() - rest.size();
        const auto line = TakeLine(rest);
        const bool isLast = TextBehindPrefix(line) == kHeaderEndText || rest.empty();
        if (!isLast && line != kEndMark) continue;
        const size_t end = line == kEndMark ? at : at + line.size();
        Add(order, {TracePart::kHeader, whole.substr(begin, end - begin), begin != 0});
        if (isLast) return;
        begin = at + line.size();
    }
}

/// Where the last line of `text` begins if it is loose: a writer that was killed in it, or in the
/// mark behind it, has left it like this.
size_t FindTornLine(std::string_view text) {
    const size_t end = text.size() - (text.ends_with('\n') ? 1 : 0);
    const size_t line = text.substr(0, end).rfind('\n') + 1;  // npos + 1 is 0
    return StampOf(text.substr(line)).empty() ? line : text.size();
}

/// The size of the line in the making that `text`, what stands behind the mark, begins with. Only a
/// mark behind it tells it from the rest of an overwritten line: 0 if there is none.
size_t SizeOfLineInTheMaking(std::string_view text) {
    if (!IsRestOfPrefix(text)) return 0;
    for (auto rest = text; !rest.empty();) {
        const size_t at = text.size() - rest.size();
        const auto line = TakeLine(rest);
        if (line == kEndMark) return at;
        if (!StampOf(line).empty()) return 0;
    }
    return 0;
}

/// The size of what was written of `text`, which stands behind the mark of a first pass: up to where
/// a block as it was made shows through, and without the beginning of a mark.
size_t SizeOfWritten(std::string_view text) {
    auto written = text.substr(0, text.find("_\n"));
    written = written.substr(0, written.find_last_not_of('_') + 1);  // npos + 1 is 0
    const size_t line = written.rfind('\n') + 1;
    return kEndMark.starts_with(written.substr(line)) ? line : written.size();
}

/// The lines of a ring proper in which a mark stands. In the first pass nothing older is behind it,
/// but perhaps a part of a line in the making.
void AddMarkedPasses(RingOrder& order, std::string_view lines, bool isFirstPass) {
    const auto newest = lines.substr(0, *order.mark);
    const auto behind = lines.substr(*order.mark + kEndMark.size());
    size_t made = SizeOfLineInTheMaking(behind);
    auto older = isFirstPass ? std::string_view{} : behind;
    if (made != 0) older = behind.substr(made + kEndMark.size());
    if (made == 0 && isFirstPass) made = SizeOfWritten(behind);
    if (newest.empty() && older.ends_with(kEndMark)) older.remove_suffix(kEndMark.size());
    Add(order, {TracePart::kOlder, older, true});
    Add(order, {TracePart::kNewest, newest});
    Add(order, {TracePart::kNewest, behind.substr(0, made), true});
}

/// The same where there is none.
void AddUnmarkedPasses(RingOrder& order, std::string_view lines, bool isFirstPass) {
    const PassEnd end = isFirstPass ? PassEnd{lines.size(), false} : FindPassEnd(lines);
    const size_t torn = end.at == lines.size() ? FindTornLine(lines) : end.at;
    Add(order, {TracePart::kOlder, lines.substr(end.at), end.isCut});
    Add(order, {TracePart::kNewest, lines.substr(0, torn)});
    Add(order, {TracePart::kNewest, lines.substr(torn, end.at - torn), true});
}

/// `text` is what stands behind the begin line.
void AddPasses(RingOrder& order, std::string_view text) {
    const auto written = WithoutBlocks(text);
    const bool isFirstPass = written.size() != text.size();
    const auto lines = WithoutDots(written);
    order.mark = FindMark(lines);
    if (order.mark)
        AddMarkedPasses(order, lines, isFirstPass);
    else
        AddUnmarkedPasses(order, lines, isFirstPass);
}

}  // namespace

std::optional<RingOrder> OrderRing(std::string_view text) {
    const auto begin = FindBeginLine(text);
    if (begin.empty()) return std::nullopt;
    const auto beginAt = static_cast<size_t>(begin.data() - text.data());
    const size_t ringAt = beginAt + begin.size();
    RingOrder order;
    AddHeader(order, text.substr(0, beginAt));
    Add(order, {TracePart::kBegin, begin});
    AddPasses(order, text.substr(ringAt));
    if (order.mark) *order.mark += ringAt;
    return order;
}

}  // namespace zornctl
