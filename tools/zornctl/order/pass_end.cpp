// Behind the newest line stands what is left of an older one, cut at any byte, and then whole older
// lines. So the end of the pass is looked for by these signs, the surest first:
//
//  1. A line that begins in the middle of a prefix: nothing but overwriting makes one.
//  2. A place where the time stamp goes back. Where there are several, the clock was set back (or
//     summer time ended) besides: then a place with loose lines (without prefix) in front of the
//     later stamp counts more than one without, and a large step more than a small one.
//
// Loose lines in front of the step are further lines of the newest text, the rest of the cut one,
// or both; which ones cannot be known. The last one is taken for the cut one, the others for
// further lines of the newest text, since losing sight of those would be worse.
//
// Equal stamps are no sign: a line may be as old as its neighbour, and a whole pass within one
// millisecond does not happen in a file of useful size. A clock that was set back so far that the
// older lines seem to be newer, and a cut line without a trace of its prefix: then, and only then,
// the older lines are taken for newest ones. A stamp that tells no time is passed over.

#include "zornctl/order/pass_end.h"

#include <cstdint>
#include <limits>
#include <tuple>

#include "zornctl/order/trace_prefix.h"

namespace zornctl {

namespace {

/// Goes over the lines and keeps the best place where the stamp steps back.
class StepSearch {
  public:
    explicit StepSearch(size_t size) { m_Best.at = size; }

    void TakeLoose(size_t at) { m_Loose = {at, true}; }

    void TakeStamped(size_t at, std::string_view stamp) {
        const PassEnd place = m_Loose.isCut ? m_Loose : PassEnd{at, false};
        m_Loose = {};
        const auto now = StampMilliseconds(stamp);
        if (!now) return;
        if (*now < m_Former) Weigh(place, m_Former - *now);
        m_Former = *now;
    }

    [[nodiscard]] PassEnd Best() const { return m_Best; }

  private:
    void Weigh(const PassEnd& place, int64_t step) {
        if (std::tuple{place.isCut, step} <= std::tuple{m_Best.isCut, m_Step}) return;
        m_Best = place;
        m_Step = step;
    }

    PassEnd m_Best;
    int64_t m_Step = 0;
    int64_t m_Former = std::numeric_limits<int64_t>::min();  ///< the last time
    PassEnd m_Loose;  ///< the last loose line since the last stamp, if it is cut
};

}  // namespace

PassEnd FindPassEnd(std::string_view text) {
    StepSearch search{text.size()};
    for (auto rest = text; !rest.empty();) {
        const size_t at = text.size() - rest.size();
        const auto line = BareLine(TakeLine(rest));
        const auto stamp = StampOf(line);
        if (!stamp.empty()) {
            search.TakeStamped(at, stamp);
        } else if (IsRestOfPrefix(line)) {
            return {at, true};
        } else {
            search.TakeLoose(at);
        }
    }
    return search.Best();
}

}  // namespace zornctl
