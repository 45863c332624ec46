#include "inventory/text/command_reader.h"

namespace {

constexpr size_t kDefaultLineSize = 256;

}  // namespace

CCommandReader::CCommandReader() : m_Error{0}, m_IsStuck{false} {}

CCommandReader::~CCommandReader() {
    (void)Close();
}

bool CCommandReader::SetCommand(const std::string& command) {
    if (command.empty()) return Fail(kEmptyArgument);
    m_Command = command;
    return true;
}

bool CCommandReader::AddArgument(const std::string& text, bool withBlank) {
    if (text.empty()) return Fail(kEmptyArgument);
    if (withBlank) m_Command += ' ';
    m_Command += text;
    return true;
}

bool CCommandReader::Open() {
    (void)Close();
    m_IsStuck = false;
    m_Stream = CommandPipe::Open(m_Command.c_str());
    return m_Stream || Fail(kNotStarted);
}

bool CCommandReader::ReadLine(size_t size) {
    if (!IsRunning()) return Fail(kNotRunning);
    return m_Stream.ReadLine(m_Line, (size == 0 ? kDefaultLineSize : size) - 1);
}

bool CCommandReader::Close() {
    if (m_Stream) m_IsStuck = m_Stream.Close() == -1;
    return !m_IsStuck || Fail(kNotClosed);
}

bool CCommandReader::Fail(int32_t code) {
    m_Error = code;
    return false;
}
