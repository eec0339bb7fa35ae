// durable.cpp: the durable save of a table's two files. Each file is written
// whole to "<file>.tmp" in its own directory, fsynced and closed; only when
// both are complete are they renamed over the old files, the id file first,
// and the directories fsynced. Until the first rename the old files stay
// whole; a reader never sees a cut file.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "persist/persist_internal.h"
#include "rsv_internal.h"

namespace {

constexpr const char *kTmpSuffix = ".tmp";

// Where a save stopped: the file, the step and its errno.
struct Failure {
    const char *file = nullptr;
    const char *step = "";
    int error = 0;
};

// The directory part of `path` ("." when it has none).
std::string directoryOf(const char *path)
{
    const char *slash = std::strrchr(path, '/');
    if (!slash)
        return ".";
    if (slash == path)
        return "/";
    return std::string(path, static_cast<size_t>(slash - path));
}

bool fail(Failure &f, const char *file, const char *step)
{
    f.file = file;
    f.step = step;
    f.error = errno;
    return false;
}

// Write `text` to `tmp`, fsync it and close it. On failure the temporary
// file is removed again.
bool writeTemporary(const char *file, const std::string &tmp, std::string_view text, Failure &f)
{
    const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return fail(f, file, "open");
    bool ok = true;
    size_t done = 0;
    while (ok && done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            ok = fail(f, file, "write");
        } else {
            done += static_cast<size_t>(n);
        }
    }
    if (ok && ::fsync(fd) != 0)
        ok = fail(f, file, "fsync");
    if (::close(fd) != 0 && ok)
        ok = fail(f, file, "close");
    if (!ok) {
        const int saved = errno;
        ::unlink(tmp.c_str());
        errno = saved;
    }
    return ok;
}

bool syncDirectory(const char *file, const std::string &dir, Failure &f)
{
    const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return fail(f, file, "open directory");
    bool ok = ::fsync(fd) == 0 || fail(f, file, "fsync directory");
    ::close(fd);
    return ok;
}

// The two files of a save, in writing order. Every text is made before the
// first file is touched, so that running out of memory writes nothing.
struct Target {
    const char *file;
    std::string tmp;
    std::string dir;
    std::string text;
};

// The files of a save with their texts, in writing order: the id file (a
// table whose state file has no '.' has none), then the state file. 0, or
// RSV_ERR_NO_MEMORY.
int buildTargets(RsvTimeTbl *tbl, const std::vector<const RsvEnt *> *skip, std::string &stateText,
                 Target (&targets)[2], int &count)
{
    count = 0;
    try {
        if (tbl->idFile && tbl->idFile[0] != '\0') {
            targets[count].file = tbl->idFile;
            rsv::RsvId_appendFileText(targets[count].text);
            targets[count++].tmp = std::string(tbl->idFile) + kTmpSuffix;
        }
        targets[count].file = tbl->stateFile;
        stateText.clear();
        targets[count].text.swap(stateText);
        rsv::RsvTimeTbl_appendStateText(tbl, targets[count].text, skip);
        targets[count++].tmp = std::string(tbl->stateFile) + kTmpSuffix;
        for (int i = 0; i < count; ++i)
            targets[i].dir = directoryOf(targets[i].file);
    } catch (const std::bad_alloc &) {
        rsv::noteAllocationFailure();
        return RSV_ERR_NO_MEMORY;
    }
    return 0;
}

// Every text to its temporary file. On failure nothing is replaced yet: the
// temporaries already complete are dropped.
bool writeTemporaries(const Target *targets, int count, Failure &f)
{
    bool ok = true;
    int written = 0;
    for (; ok && written < count; ++written)
        ok = writeTemporary(targets[written].file, targets[written].tmp, targets[written].text, f);
    if (!ok) {
        for (int i = 0; i < written - 1; ++i)
            ::unlink(targets[i].tmp.c_str());
    }
    return ok;
}

// Which files are missing, noted before anything is replaced, so that a
// repair knows which files to take away again.
void noteMissingFiles(rsv::TableSettings &settings, const Target *targets, int count)
{
    const bool hasIdFile = count == 2;
    settings.idFileWasMissing = hasIdFile && ::access(targets[0].file, F_OK) != 0;
    settings.stateFileWasMissing = ::access(targets[count - 1].file, F_OK) != 0;
}

// The temporaries renamed over their files in order; a failed rename drops
// the temporaries not renamed. *replaced (may be NULL) is set once any file
// was replaced.
bool renameTargets(const Target *targets, int count, Failure &f, bool *replaced)
{
    bool ok = true;
    int renamed = 0;
    for (; ok && renamed < count; ++renamed) {
        if (::rename(targets[renamed].tmp.c_str(), targets[renamed].file) != 0) {
            ok = fail(f, targets[renamed].file, "rename");
            for (int i = renamed; i < count; ++i)
                ::unlink(targets[i].tmp.c_str());
            break;
        }
    }
    if (renamed > 0 && replaced)
        *replaced = true;
    return ok;
}

// The directory of each replaced file, once.
bool syncDirectories(const Target *targets, int count, Failure &f)
{
    bool ok = true;
    for (int i = 0; ok && i < count; ++i) {
        if (i > 0 && targets[i].dir == targets[0].dir)
            continue;
        ok = syncDirectory(targets[i].file, targets[i].dir, f);
    }
    return ok;
}

// The outcome kept for RsvTimeTbl_lastSaveError, the failure logged, and the
// result: RSV_OK, or RSV_ERR_NOT_SAVED with errno set to the failed step's.
int recordOutcome(rsv::TableSettings &settings, bool ok, const Failure &f)
{
    if (ok) {
        settings.saveErrno = 0;
        settings.saveFile.clear();
        settings.saveStep = "";
        return RSV_OK;
    }
    try {
        settings.saveFile = f.file;
    } catch (...) {
        settings.saveFile.clear();
    }
    settings.saveErrno = f.error;
    settings.saveStep = f.step;
    kx_syslog(KX_LOG_ERR, "%s: %s not saved (%s): %s", "RsvTimeTbl_save", f.file, f.step, std::strerror(f.error));
    errno = f.error;
    return RSV_ERR_NOT_SAVED;
}

} // namespace

namespace rsv {

int RsvTimeTbl_saveDurably(RsvTimeTbl *tbl, const std::vector<const RsvEnt *> *skip, bool *replaced)
{
    if (replaced)
        *replaced = false;
    if (!tbl || !tbl->stateFile || tbl->stateFile[0] == '\0')
        return RSV_ERR_BAD_ARGUMENT;
    TableSettings *settings = tableSettings(tbl, true);
    if (!settings)
        return RSV_ERR_NO_MEMORY;
    Target targets[2];
    int count = 0;
    // Out of memory, the text's room goes with the targets.
    if (int error = buildTargets(tbl, skip, settings->stateText, targets, count))
        return error;
    Failure f;
    bool ok = writeTemporaries(targets, count, f);
    if (ok)
        noteMissingFiles(*settings, targets, count);
    ok = ok && renameTargets(targets, count, f, replaced);
    ok = ok && syncDirectories(targets, count, f);
    settings->stateText.swap(targets[count - 1].text);
    return recordOutcome(*settings, ok, f);
}

} // namespace rsv

extern "C" {

int RsvTimeTbl_setDurable(RsvTimeTbl *tbl, int durable)
{
    if (!tbl)
        return -1;
    const int previous = rsv::isDurable(tbl) ? 1 : 0;
    if (durable) {
        rsv::TableSettings *settings = rsv::tableSettings(tbl, true);
        if (!settings)
            return -1;
        settings->durable = true;
    } else if (rsv::TableSettings *settings = rsv::tableSettings(tbl, false)) {
        settings->durable = false;
    }
    return previous;
}

int RsvTimeTbl_isDurable(const RsvTimeTbl *tbl)
{
    return rsv::isDurable(tbl) ? 1 : 0;
}

int RsvTimeTbl_save(RsvTimeTbl *tbl)
{
    const int status = rsv::RsvTimeTbl_saveDurably(tbl, nullptr, nullptr);
    if (status != RSV_OK) {
        const int saved = errno;
        qob_errno = status;
        errno = saved;
    }
    return status;
}

int RsvTimeTbl_lastSaveError(const RsvTimeTbl *tbl, const char **file, const char **step)
{
    const rsv::TableSettings *settings = rsv::tableSettings(tbl, false);
    if (file)
        *file = settings && settings->saveErrno ? settings->saveFile.c_str() : "";
    if (step)
        *step = settings && settings->saveErrno ? settings->saveStep : "";
    return settings ? settings->saveErrno : 0;
}

} // extern "C"

namespace rsv {

void RsvTimeTbl_repairFiles(RsvTimeTbl *tbl) noexcept
{
    TableSettings *settings = tableSettings(tbl, false);
    if (!settings)
        return;
    TableSettings failed;
    failed.saveErrno = settings->saveErrno;
    failed.saveStep = settings->saveStep;
    failed.saveFile.swap(settings->saveFile);
    const bool idWasMissing = settings->idFileWasMissing;
    const bool stateWasMissing = settings->stateFileWasMissing;
    try {
        if (RsvTimeTbl_saveDurably(tbl, nullptr, nullptr) == RSV_OK) {
            Failure ignored;
            if (idWasMissing && tbl->idFile && tbl->idFile[0] != '\0' && ::unlink(tbl->idFile) == 0)
                syncDirectory(tbl->idFile, directoryOf(tbl->idFile), ignored);
            if (stateWasMissing && ::unlink(tbl->stateFile) == 0)
                syncDirectory(tbl->stateFile, directoryOf(tbl->stateFile), ignored);
        }
    } catch (const std::bad_alloc &) {
        noteAllocationFailure();
    }
    // The failure reported is the change's, not the repair's.
    settings->saveErrno = failed.saveErrno;
    settings->saveStep = failed.saveStep;
    settings->saveFile.swap(failed.saveFile);
}

} // namespace rsv
