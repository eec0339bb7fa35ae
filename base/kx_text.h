/* Text helpers of the scheduler's base library. */
#ifndef KX_TEXT_H
#define KX_TEXT_H

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default) /* the library's public surface */
#endif

/* 1 when `text` is a whole decimal number (an optional leading '+' or '-',
 * then one or more digits, within the range of int), else 0. */
int isint_(const char *text);

/* 1 when `text` is a non-empty run of decimal digits, else 0. */
int isdigitstr_(const char *text);

/* Copy the contents of the double-quoted string at the start of `src` into
 * `dst` (without the quotes, NUL-terminated) and return how many characters
 * of `src` the quoted string occupies, quotes included. A negative value when
 * `src` does not begin with a well-formed quoted string (dst then untouched).
 * The closing quote is the last double quote before the end of the line, so
 * quotes inside the text need no escaping and backslashes are ordinary
 * characters; `dst` must hold strlen(src) bytes. */
int stripQStr(const char *src, char *dst);

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif
#endif
