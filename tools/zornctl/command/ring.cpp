// A writer that stores into a mapping raises no event, so a running ring is asked many times a
// second whether its end mark still stands where it stood: the next line overwrites it, and so does
// a wrap.

#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "platform/unique_fd.h"
#include "zornctl/command/commands.h"
#include "zornctl/command/trace_view.h"
#include "zornctl/order/order_ring.h"
#include "zornctl/system/whole_file.h"

namespace zornctl {

namespace {

constexpr const char* kNoMarkNote =
    "no end mark: the order comes from the time stamps, and the newest line may be mixed with an "
    "older one";
/// While a running ring is read, its mark may move on, and what was read be of two moments.
constexpr int kTries = 3;

/// A ring file and where its mark stood when it was read last.
class RingFile {
  public:
    RingFile(std::string path, bool follows) : m_Path(std::move(path)), m_Follows(follows) {}

    std::unique_ptr<TraceLook> Read() {
        auto look = ReadOnce();
        for (int i = 1; look && i < kTries && HasChanged(); ++i) look = ReadOnce();
        return look;
    }

    [[nodiscard]] bool HasChanged() const {
        if (m_IsCompressed) return false;
        const UniqueFd file{open(m_Path.c_str(), O_RDONLY | O_CLOEXEC)};
        std::array<char, kEndMark.size()> bytes{};
        if (!file || !m_Mark) return true;
        const ssize_t got =
            pread(file.Get(), bytes.data(), bytes.size(), static_cast<off_t>(*m_Mark));
        return got != ssize_t{bytes.size()} ||
               std::string_view{bytes.data(), bytes.size()} != kEndMark;
    }

  private:
    std::unique_ptr<TraceLook> ReadOnce() {
        m_Mark.reset();
        auto look = std::make_unique<TraceLook>();
        look->file = ReadText();
        const auto order = OrderRing(look->file);
        if (!order) return nullptr;
        look->entries = SplitEntries(order->pieces);
        for (const auto& piece : order->pieces) {
            if (piece.part == TracePart::kBegin) look->identity = piece.text;
        }
        if (!order->mark) look->note = kNoMarkNote;
        m_Mark = order->mark;
        return look;
    }

    [[nodiscard]] std::string ReadText() {
        auto text = ReadTraceFile(m_Path, kLargestRing);
        m_IsCompressed = IsCompressed(text);
        if (!m_IsCompressed) return text;
        if (!m_Follows) return Uncompress(m_Path, kLargestRing);
        throw Failure{ExitStatus::kWrongUse, m_Path, "is compressed: nothing more will follow",
                      "leave out --follow"};
    }

    std::string m_Path;
    bool m_Follows;
    bool m_IsCompressed = false;
    std::optional<size_t> m_Mark;
};

}  // namespace

ExitStatus RunRing(const Arguments& arguments, Output& output) {
    const auto path = *arguments.Operand(0);
    RingFile ring{path, arguments.Has("follow")};
    const TraceSource source{path, [&] { return ring.Read(); }, "ring file",
                             std::chrono::milliseconds{50}, [&] { return ring.HasChanged(); }};
    return ShowTrace(source, arguments, output);
}

}  // namespace zornctl
