#include "trace/line_text.h"

#include <cstdio>
#include <cstring>

int FormatText(char* buffer, size_t size, const char* fmt, va_list args) {
    const size_t newlines = strspn(fmt, "\n");
    if (fmt[newlines] != '\0') fmt += newlines;
    return vsnprintf(buffer, size, fmt, args);
}

size_t EndWithNewline(char* line, size_t length) {
    if (length > 0 && line[length - 1] == '\n') return length;
    line[length] = '\n';
    return length + 1;
}
