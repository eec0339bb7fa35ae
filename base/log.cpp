// STUB: generated placeholder; replace each function with its implementation.
#include "kx_log.h"

extern "C" {

int logclass;
KxCatalog *kx_catd;

const char *kx_catgets(KxCatalog *catd, int set, int num, const char *defaultText)
{
    (void)catd; (void)set; (void)num; (void)defaultText; return {};
}

void kx_syslog(int level, const char *fmt, ...)
{
    (void)level; (void)fmt;
}

KxLogSink kx_setLogSink(KxLogSink sink)
{
    (void)sink; return {};
}

} // extern "C"
