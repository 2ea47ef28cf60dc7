// The audio side's console lines, once, exactly: operators and log readers
// depend on them. (The behaviour behind each is tested with the pool and the
// endpoints.)
#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <vector>

#include "aplay/pcm_config.h"
#include "audio/buffpool.h"
#include "endpoint_fixture.h"
#include "support/output_capture.h"

using AudioLog = AudioTest;

TEST_F(AudioLog, EachLineAsTheOperatorsKnowIt) {
  std::vector<uint8_t> bytes(0x200001);
  int32_t len = 16, all = int32_t(bytes.size());
  BuffPool pool{};
  const std::string init = "-->velquare_audioprocess_init [0-9]+: init AUDIOPROCESS_";
  const std::string uninit = "-->velquare_audioprocess_uninit [0-9]+: uinit AUDIOPROCESS_";
  const struct {
    const char *what;
    std::function<void()> act;
    std::string line;  // a regular expression for the whole output
  } cases[] = {
      {"create, no pool", [] { buffpool_create(nullptr); }, "buffpool create err\n"},
      {"delete, no pool", [] { buffpool_delete(nullptr); }, "buffpool delete err\n"},
      {"transfer, no pool", [&] { buffpool_rw(nullptr, BUFFPOOL_READ, bytes.data(), &len); },
       "buffpool write\\|read err\n"},
      {"transfer, pool deleted",  // so a late reader never touches freed memory
       [&] {
         buffpool_create(&pool), buffpool_delete(&pool), buffpool_rw(&pool, 3, bytes.data(), &len);
       },
       "err: audio buff not init\n"},
      {"transfer, full",
       [&] { buffpool_create(&pool), buffpool_rw(&pool, BUFFPOOL_WRITE, bytes.data(), &all); },
       "audio is full, writeBuffPoolNum - readBuffPoolNum : 0\n"},
      {"by type, unknown", [&] { buffpool_rw_by_type(16, BUFFPOOL_WRITE, bytes.data(), &len); },
       "buffpool write\\|read err\n"},
      {"by type, unknown direction", [&] { buffpool_rw_by_type(16, 0, bytes.data(), &len); }, ""},
      {"by type, not created",
       [&] { buffpool_rw_by_type(AUDIOPROCESS_LINEIN, BUFFPOOL_READ, bytes.data(), &len); },
       "err: audio buff not init\n"},
      {"init", [] { velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN); },
       init + "DIGITMIC\n" + init + "LINEIN\n"},
      {"line-in parameters", [] { set_params(&gEndpoints[EP_LINEIN]); },
       "-----> buffer_time : [0-9]+, buffer_frames : 4096\n-----> period_time : [0-9]+, "
       "period_frames : 1024\n"
       "-----> pchunk_size : 1024, buffer_size : 4096\n"},
      {"uninit", [] { velquare_audioprocess_uninit(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN); },
       uninit + "DIGITMIC\n" + uninit + "LINEIN\n"},
  };
  for (const auto &c : cases) {
    const std::string out = stdoutOf(c.act);
    EXPECT_TRUE(std::regex_match(out, std::regex(c.line))) << c.what << ": " << out;
  }
  buffpool_delete(&pool);
}
