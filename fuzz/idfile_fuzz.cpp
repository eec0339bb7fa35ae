// Fuzzes the id-file reader: the input is written to a file and loaded. The
// counters it yields must survive a rewrite of the id file and a reload.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "fuzz_services.h"

extern "C" HashTab *rsvIdTbl;

namespace {

std::map<std::string, int> counters()
{
    std::map<std::string, int> out;
    if (!rsvIdTbl)
        return out;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(rsvIdTbl, &iter); he; he = h_nextEnt_(&iter))
        out[he->key] = static_cast<int>(reinterpret_cast<intptr_t>(he->value));
    return out;
}

// Two files of this process under the temporary directory.
struct Files {
    std::string input;
    std::string output;
    Files()
    {
        const char *dir = std::getenv("TMPDIR");
        const std::string base = std::string(dir && *dir ? dir : "/tmp") + "/rsv-idfile-fuzz." +
                                 std::to_string(static_cast<long>(getpid()));
        input = base + ".in.ids";
        output = base + ".out.ids";
    }
    ~Files()
    {
        std::remove(input.c_str());
        std::remove(output.c_str());
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    rsvfuzz::setUp();
    static Files files;
    FILE *fp = std::fopen(files.input.c_str(), "wb");
    if (!fp)
        return 0;
    std::fwrite(data, 1, size, fp);
    std::fclose(fp);

    RsvId_clearTbl();
    initRsvIdTbl(files.input.c_str());
    const auto loaded = counters();

    RsvTimeTbl tbl{};
    tbl.idFile = const_cast<char *>(files.output.c_str());
    RsvTimeTbl_logId(&tbl);
    RsvId_clearTbl();
    initRsvIdTbl(files.output.c_str());
    if (counters() != loaded) {
        std::fprintf(stderr, "id file does not read back the counters it was written from\n");
        std::abort();
    }
    RsvId_clearTbl();
    return 0;
}
