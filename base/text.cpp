// STUB: generated placeholder; replace each function with its implementation.
#include "kx_text.h"

extern "C" {


int isint_(const char *text)
{
    (void)text; return {};
}

int isdigitstr_(const char *text)
{
    (void)text; return {};
}

int stripQStr(const char *src, char *dst)
{
    (void)src; (void)dst; return {};
}

} // extern "C"
