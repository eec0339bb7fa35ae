// Replays the fuzz corpus of the record and id-file readers (seeds and every
// input that once crashed) in the ordinary test run, with the same checks as
// the fuzz targets.
#include <dirent.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "persist_test_util.h"
#include "rsv_test_support.h"


using namespace rsvtest;
using namespace persisttest;

namespace {

std::vector<std::string> corpus(const std::string &target)
{
    std::vector<std::string> files;
    const std::string dirName = std::string(RSV_TEST_DATA_DIR) + "/fuzz/" + target;
    if (DIR *dir = opendir(dirName.c_str())) {
        while (struct dirent *de = readdir(dir))
            if (de->d_name[0] != '.')
                files.push_back(dirName + "/" + de->d_name);
        closedir(dir);
    }
    std::sort(files.begin(), files.end());
    return files;
}

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

class FuzzCorpusTest : public ::testing::Test {
protected:
    FuzzCorpusTest()
    {
        daemon.addHost("hostA", 8);
        daemon.addHost("hostB", 8, -1, {"b-alias"});
    }
    FakeDaemon daemon;
    ScopedTz tz{"UTC"};
    PinnedClock clock{1700000000};
    LogCapture log; // the corpus is full of malformed input: keep it quiet
    TempDir dir;
};

} // namespace

TEST_F(FuzzCorpusTest, EveryRecordInputIsReadSafelyAndAcceptedOnesRoundTrip)
{
    const auto files = corpus("record");
    ASSERT_GE(files.size(), 5u);
    int accepted = 0;
    for (const auto &file : files) {
        const std::string data = readFile(file);
        EntryPtr ent(RsvEnt_newByString(data.c_str()));
        if (!ent)
            continue;
        ++accepted;
        const std::string first = toString(ent.get());
        EntryPtr again(RsvEnt_newByString(first.c_str()));
        ASSERT_TRUE(again) << file << ": " << first;
        EXPECT_EQ(toString(again.get()), first) << file;
    }
    EXPECT_GT(accepted, 0);
}

TEST_F(FuzzCorpusTest, EveryIdFileInputLoadsAndRoundTrips)
{
    const auto files = corpus("idfile");
    ASSERT_GE(files.size(), 3u);
    for (const auto &file : files) {
        RsvId_clearTbl();
        initRsvIdTbl(file.c_str());
        const auto loaded = counters();
        RsvTimeTbl tbl{};
        std::string out = dir.file("out.ids");
        tbl.idFile = out.data();
        RsvTimeTbl_logId(&tbl);
        RsvId_clearTbl();
        initRsvIdTbl(out.c_str());
        EXPECT_EQ(counters(), loaded) << file;
    }
}
