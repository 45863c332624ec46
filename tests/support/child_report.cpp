// A record is three numbers (kind of result, line, and the length of the text) and two texts: the
// file name, ended by a NUL, and the message. The record of the end has the kind kDone.

#include "support/child_report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "support/libc_fault.h"

using testing::TestPartResult;

namespace {

constexpr int32_t kDone = -1;
constexpr const char* kTraceHead = "\nGoogle Test trace:";

struct RecordHead {
    int32_t kind;
    int32_t line;
    uint64_t size;  ///< of both texts
};

void WriteAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t done =
            LibcFault::Real<&::write>(fd, static_cast<const void*>(bytes.data()), bytes.size());
        if (done < 0 && errno == EINTR) continue;
        if (done < 0) return;  // the test has gone: there is nobody to tell
        bytes.remove_prefix(static_cast<size_t>(done));
    }
}

void WriteRecord(int fd, int32_t kind, const char* file, int32_t line, std::string_view message) {
    std::string texts{file == nullptr ? "" : file};
    texts.push_back('\0');
    texts.append(message);
    const RecordHead head{kind, line, texts.size()};
    std::string record(sizeof head, '\0');
    memcpy(record.data(), &head, sizeof head);
    WriteAll(fd, record + texts);
}

/// Passes on to the running test whatever listens in between.
testing::TestPartResultReporterInterface* g_Base = nullptr;

/// What the test's own SCOPED_TRACE statements add to each message; the test adds it once more.
std::string InheritedTraces() {
    testing::TestPartResultArray results;
    {
        testing::ScopedFakeTestPartResultReporter listen{
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results};
        ADD_FAILURE();
    }
    const std::string message = results.GetTestPartResult(0).message();
    const auto head = message.find(kTraceHead);
    return head == message.npos ? "" : message.substr(head + strlen(kTraceHead));
}

void Report(TestPartResult::Type type, const char* file, int line, const std::string& message) {
    testing::internal::AssertHelper(type, file, line, message.c_str()) = testing::Message();
}

}  // namespace

void PrepareChildReports() {
    // It keeps the way to the running test, and stays in it for as long as the program runs.
    static testing::internal::HasNewFatalFailureHelper base;
    g_Base = &base;
}

void ReportFailure(const Where& where, const std::string& text) {
    ADD_FAILURE_AT(where.file, where.line) << text;
}

class ChildReport::Listener : public testing::EmptyTestEventListener {
  public:
    explicit Listener(int pipe) : m_Pipe(pipe), m_Inherited(InheritedTraces()) {}

    void OnTestPartResult(const TestPartResult& result) override {
        if (result.passed()) return;
        std::string message = result.message();
        if (!m_Inherited.empty() && message.ends_with(m_Inherited)) {
            message.erase(message.size() - m_Inherited.size());
            if (message.ends_with(kTraceHead)) message.erase(message.size() - strlen(kTraceHead));
        }
        WriteRecord(m_Pipe, result.type(), result.file_name(), result.line_number(), message);
    }

  private:
    int m_Pipe;
    std::string m_Inherited;
};

/// Takes the place of a listener that the test itself has put in the way: it is a copy of no use
/// here.
class ChildReport::ToTheTest : public testing::ScopedFakeTestPartResultReporter {
  public:
    explicit ToTheTest(testing::TestPartResultArray* unused)
        : ScopedFakeTestPartResultReporter(INTERCEPT_ONLY_CURRENT_THREAD, unused) {}

    void ReportTestPartResult(const TestPartResult& result) override {
        g_Base->ReportTestPartResult(result);
    }
};

ChildReport::ChildReport(int pipe) : m_Pipe(pipe) {
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    const std::unique_ptr<testing::TestEventListener> printer{
        listeners.Release(listeners.default_result_printer())};
    listeners.Append(new Listener(pipe));  // GoogleTest's own from here on
    m_ToTheTest = std::make_unique<ToTheTest>(&m_Unused);
}

ChildReport::~ChildReport() = default;

void ChildReport::Done() {
    WriteRecord(m_Pipe, kDone, nullptr, 0, {});
}

void ParentReport::Take(std::string_view bytes) {
    m_Rest += bytes;
    while (TakeRecord()) {
    }
}

bool ParentReport::TakeRecord() {
    RecordHead head;
    if (m_Rest.size() < sizeof head) return false;
    memcpy(&head, m_Rest.data(), sizeof head);
    if (m_Rest.size() < sizeof head + head.size) return false;
    const std::string texts = m_Rest.substr(sizeof head, head.size);
    m_Rest.erase(0, sizeof head + head.size);
    if (head.kind == kDone) {
        m_IsDone = true;
        return true;
    }
    const auto end = texts.find('\0');
    const std::string file = texts.substr(0, end);
    Report(static_cast<TestPartResult::Type>(head.kind), file.empty() ? nullptr : file.c_str(),
           head.line, texts.substr(end + 1));
    return true;
}
