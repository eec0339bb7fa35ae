// Text helpers: whole-number checks and the quoted-string reader of the
// reservation record.
#include "kx_text.h"

#include <climits>
#include <cstring>

extern "C" {

// 1 when `text` is an optional '+' or '-' followed by one or more decimal
// digits and nothing else, with a value within int; else 0 (also for NULL).
// Leading zeros are allowed and do not count against the range.
int isint_(const char *text)
{
    if (!text)
        return 0;
    const char *p = text;
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    if (*p == '\0')
        return 0;
    // Room for INT_MIN's magnitude; the value stops growing once past it.
    const long long limit = negative ? -static_cast<long long>(INT_MIN) : INT_MAX;
    long long value = 0;
    for (; *p; ++p) {
        if (*p < '0' || *p > '9')
            return 0;
        value = value * 10 + (*p - '0');
        if (value > limit)
            return 0;
    }
    return 1;
}

// 1 when `text` is one or more decimal digits and nothing else; 0 for an
// empty text, any sign, blank or other character, and NULL. No range limit.
int isdigitstr_(const char *text)
{
    if (!text || *text == '\0')
        return 0;
    for (const char *p = text; *p; ++p) {
        if (*p < '0' || *p > '9')
            return 0;
    }
    return 1;
}

// Copies the text between the opening quote at src[0] and the LAST double
// quote before the end of the line ('\n' or NUL) into dst, NUL-terminated,
// and returns the characters that span, quotes included. The record writer
// does not escape quotes inside a description, so taking the last quote on
// the line is what lets any one-line description, quotes and all, read back
// exactly as written. Backslashes are ordinary characters. -1 when src does
// not begin with '"', when the line has no closing quote, or on NULL; dst is
// then untouched. dst must hold strlen(src) bytes.
int stripQStr(const char *src, char *dst)
{
    if (!src || !dst || src[0] != '"')
        return -1;
    const char *lineEnd = src + 1 + std::strcspn(src + 1, "\n");
    const char *close = nullptr;
    for (const char *p = src + 1; p < lineEnd; ++p) {
        if (*p == '"')
            close = p;
    }
    if (!close)
        return -1;
    size_t len = static_cast<size_t>(close - (src + 1));
    std::memcpy(dst, src + 1, len);
    dst[len] = '\0';
    return static_cast<int>(close - src + 1);
}

} // extern "C"
