#include "support/libc_fault.h"

SyslogCapture::SyslogCapture() {
    m_Syslog.Always([this](int priority, const char* text) {
        const std::lock_guard hold{m_Lock};
        m_Entries.push_back({priority, text});
    });
    m_Openlog.Always([this](const char* identity, int options, int facility) {
        const std::lock_guard hold{m_Lock};
        m_Identity = identity == nullptr ? "" : identity;
        m_Options = options;
        m_Facility = facility;
    });
}

std::vector<SyslogCapture::Entry> SyslogCapture::Entries() const {
    const std::lock_guard hold{m_Lock};
    return m_Entries;
}

std::vector<std::string> SyslogCapture::Lines() const {
    std::vector<std::string> lines;
    for (Entry& entry : Entries()) lines.push_back(std::move(entry.text));
    return lines;
}

std::string SyslogCapture::Identity() const {
    const std::lock_guard hold{m_Lock};
    return m_Identity;
}

int SyslogCapture::Options() const {
    const std::lock_guard hold{m_Lock};
    return m_Options;
}

int SyslogCapture::Facility() const {
    const std::lock_guard hold{m_Lock};
    return m_Facility;
}
