// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

char *RsvTimeTbl_addEntry(RsvTimeTbl *tbl, RsvReq *req)
{
    (void)tbl; (void)req; return {};
}

RsvEnt *RsvTimeTbl_getEntry(RsvTimeTbl *tbl, const char *rsvId)
{
    (void)tbl; (void)rsvId; return {};
}

int RsvTimeTbl_replaceEntry(RsvTimeTbl *tbl, const char *rsvId, RsvEnt *newEntry)
{
    (void)tbl; (void)rsvId; (void)newEntry; return {};
}

void RsvTimeTbl_restoreEntry(RsvTimeTbl *tbl, RsvEnt *ent)
{
    (void)tbl; (void)ent;
}

int RsvTimeTbl_removeEntry(RsvTimeTbl *tbl, const char *rsvId)
{
    (void)tbl; (void)rsvId; return {};
}

void RsvTimeTbl_addNameEntry(HashTab *nameTable, const char *rsvId)
{
    (void)nameTable; (void)rsvId;
}

int RsvTimeTbl_removeNameEntry(HashTab *nameTable, const char *rsvId)
{
    (void)nameTable; (void)rsvId; return {};
}

void RsvTimeTbl_checkHost(RsvTimeTbl *tbl, const char *hostName)
{
    (void)tbl; (void)hostName;
}

void RsvTimeTbl_checkEntries(RsvTimeTbl *tbl)
{
    (void)tbl;
}

int Rsv_dupTimeTbl4CurrRsv(RsvTimeTbl *tbl, RsvEnt *ent, RsvTimeTbl *tmpTbl)
{
    (void)tbl; (void)ent; (void)tmpTbl; return {};
}

void RsvTimeTbl_freeTmpTable(RsvTimeTbl *tmpTbl)
{
    (void)tmpTbl;
}

int RsvMod_aHostInTab(HashTab **hostSet, const char *hostName)
{
    (void)hostSet; (void)hostName; return {};
}

} // extern "C"
