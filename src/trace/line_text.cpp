#include "trace/line_text.h"

#include <cstdio>

int FormatText(char* buffer, size_t size, const char* fmt, va_list args) {
    const char* text = fmt;
    while (*text == '\n') ++text;
    if (*text != '\0') fmt = text;
    return vsnprintf(buffer, size, fmt, args);
}
