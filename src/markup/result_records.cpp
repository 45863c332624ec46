#include "markup/result_records.h"

#include "markup/entities.h"

namespace {

/// One record, closed with the object.
class Record {
  public:
    Record(std::string& result, std::string_view name) : m_Result(result) {
        m_Result.append("<").append(name);
    }
    ~Record() = default;
    void Text(std::string_view name, std::string_view value) {
        m_Result.append(" ").append(name).append("=\"");
        m_Result.append(EscapeText(value, kEscapeQuotes)).append("\"");
    }
    void Number(std::string_view name, int64_t value) { Text(name, std::to_string(value)); }
    void Close() { m_Result.append("/>"); }

  private:
    std::string& m_Result;
};

}  // namespace

void AddErrorRecord(std::string& result, std::string_view name,
                    std::optional<std::string_view> tagName, int64_t offset, int64_t offset2) {
    if (result.size() >= kResultLimit) return;
    Record record{result, name};
    if (tagName) record.Text("tagname", *tagName);
    if (offset != kNoOffset) record.Number("offset", offset);
    if (offset2 != kNoOffset) record.Number("offset2", offset2);
    record.Close();
}

void AddInformationRecord(std::string& result, std::string_view name, RecordText text,
                          RecordNumber number, int64_t offset2) {
    if (result.size() >= kResultLimit) return;
    Record record{result, name};
    if (!text.name.empty()) record.Text(text.name, text.value);
    if (!number.name.empty()) record.Number(number.name, number.value);
    if (offset2 != kNoOffset) record.Number("offset2", offset2);
    record.Close();
}
