// rsv.hpp: the module for C++ callers. Header-only, over the C interface of
// qob.rsvimpl.h: owners that release the module's records the way their
// contracts say, and results that carry either a value or the module's error
// number. Nothing here throws except std::bad_alloc from std::string.
#ifndef RSV_HPP
#define RSV_HPP

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "qob.rsvimpl.h"

namespace rsv {

// Frees a block the module handed out for the caller to free().
struct FreeDeleter {
    void operator()(void *p) const noexcept { std::free(p); }
};

// A heap text of the module (RsvEnt_ToString, RsvTimeTbl_addEntry, ...).
using Text = std::unique_ptr<char, FreeDeleter>;

// An entry the caller owns (RsvEnt_new, RsvEnt_newByString): its members
// and the record are released.
struct EntryDeleter {
    void operator()(RsvEnt *ent) const noexcept
    {
        RsvEnt_destroy(ent);
        std::free(ent);
    }
};
using Entry = std::unique_ptr<RsvEnt, EntryDeleter>;

// A table from RsvTimeTbl_new, released with everything it owns.
struct TableDeleter {
    void operator()(RsvTimeTbl *tbl) const noexcept { RsvTimeTbl_free(tbl); }
};
using Table = std::unique_ptr<RsvTimeTbl, TableDeleter>;

// A table made by the caller for Rsv_dupTimeTbl4CurrRsv.
struct TmpTableDeleter {
    void operator()(RsvTimeTbl *tbl) const noexcept { RsvTimeTbl_freeTmpTable(tbl); }
};
using TmpTable = std::unique_ptr<RsvTimeTbl, TmpTableDeleter>;

// The information reply, released (what was filled of it) on destruction.
class InfoReply {
public:
    InfoReply() = default;
    ~InfoReply() { RsvInfoReply_destroy(&reply_); }
    InfoReply(const InfoReply &) = delete;
    InfoReply &operator=(const InfoReply &) = delete;

    // Fill from `tbl`; 0 or the reply's error number (what was filled stays
    // until destruction).
    int fill(RsvTimeTbl *tbl)
    {
        RsvInfoReply_destroy(&reply_);
        return RsvTimeTbl_ToRsvInfoReply(tbl, &reply_);
    }
    int size() const { return reply_.numReservations; }
    const RsvInfoEnt &operator[](int i) const { return reply_.rsvInfo[i]; }
    const RsvInfoEnt *begin() const { return reply_.rsvInfo; }
    const RsvInfoEnt *end() const { return reply_.rsvInfo ? reply_.rsvInfo + reply_.numReservations : nullptr; }
    RsvInfoReply *get() { return &reply_; }

private:
    RsvInfoReply reply_{};
};

// A value or one of the module's error numbers (RSV_ERR_*).
template <typename T>
class Result {
public:
    static Result success(T value) { return Result(std::move(value), RSV_OK); }
    static Result failure(int error) { return Result(T{}, error == RSV_OK ? RSV_ERR_BAD_ARGUMENT : error); }
    explicit operator bool() const { return error_ == RSV_OK; }
    int error() const { return error_; }
    T &value() { return value_; }
    const T &value() const { return value_; }

private:
    Result(T value, int error) : value_(std::move(value)), error_(error) {}
    T value_;
    int error_;
};

// A NUL-terminated copy of a view, for the C calls.
inline std::string cText(std::string_view text)
{
    return std::string(text);
}

// RsvTimeTbl_addEntry: the new identifier, or the error it stored.
inline Result<std::string> addEntry(RsvTimeTbl *tbl, RsvReq &req)
{
    qob_errno = RSV_OK;
    Text id(RsvTimeTbl_addEntry(tbl, &req));
    if (!id)
        return Result<std::string>::failure(qob_errno);
    return Result<std::string>::success(id.get());
}

// RsvTimeTbl_removeEntry: 0 or its error number.
inline int removeEntry(RsvTimeTbl *tbl, std::string_view rsvId)
{
    return RsvTimeTbl_removeEntry(tbl, cText(rsvId).c_str());
}

// RsvTimeTbl_getEntry: the entry (still the table's) or nullptr.
inline RsvEnt *findEntry(RsvTimeTbl *tbl, std::string_view rsvId)
{
    return RsvTimeTbl_getEntry(tbl, cText(rsvId).c_str());
}

// RsvEnt_ToString as a std::string ("" when it fails).
inline std::string recordText(const RsvEnt *ent)
{
    Text text(RsvEnt_ToString(ent));
    return text ? std::string(text.get()) : std::string();
}

// Where the last durable save of `tbl` failed.
struct SaveError {
    int error = 0;
    std::string file;
    std::string step;
};
inline SaveError lastSaveError(const RsvTimeTbl *tbl)
{
    const char *file = "";
    const char *step = "";
    SaveError out;
    out.error = RsvTimeTbl_lastSaveError(tbl, &file, &step);
    out.file = file;
    out.step = step;
    return out;
}

} // namespace rsv

#endif
