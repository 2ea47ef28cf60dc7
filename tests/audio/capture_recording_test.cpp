// Debug recordings follow the marker chunk by chunk: a fresh file with its
// header when the marker appears, appended chunks while it stays, closed when
// it goes, truncated and restarted when it comes back.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "aplay/pcm_config.h"
#include "audio/capture_recording.h"
#include "audio/capture_worker.h"
#include "edge_config.h"
#include "endpoint_fixture.h"

namespace {

const std::string kMicHeader(
    "\x52\x49\x46\x46\xFC\xFF\xFF\xFF\x57\x41\x56\x45\x66\x6D\x74\x20\x10\x00\x00\x00\x01\x00\x08\x00"
    "\x80\xBB\x00\x00\x00\xE8\x03\x00\x10\x00\x10\x00\x64\x61\x74\x61\xD8\xFF\xFF\xFF",
    44);
const std::string kMarker = QV_ROOT_DIR "/recaudio";
const std::string kMicFile = QV_TMP_DIR "/recCapAudioDigitMic.wav";

}  // namespace

class CaptureRecordingTest : public AudioTest {
 protected:
  void TearDown() override {
    captureRecordingClose(&rec);
    AudioTest::TearDown();
  }
  void step(const std::string &chunk) {
    captureRecordingStep(&rec, reinterpret_cast<const uint8_t *>(chunk.data()), chunk.size());
  }
  // Records these chunks under the marker into the endpoint's file.
  std::string record(uint32_t type, const std::string &file, std::initializer_list<std::string> chunks) {
    EXPECT_TRUE(captureRecordingFor(type, &rec));
    mkdir(kMarker.c_str(), 0755);
    for (const std::string &chunk : chunks) step(chunk);
    captureRecordingClose(&rec);
    return box.read(file);
  }
  CaptureRecording rec{};
};

TEST_F(CaptureRecordingTest, MarkerStartsStopsAndRestartsTheDigitalMicRecording) {
  ASSERT_TRUE(captureRecordingFor(AUDIOPROCESS_DIGITMIC, &rec));
  step("before");
  EXPECT_NE(access(kMicFile.c_str(), F_OK), 0);

  mkdir(kMarker.c_str(), 0755);
  step("one");
  step("two");
  rmdir(kMarker.c_str());
  step("after");  // closes the file: everything so far is on disk
  EXPECT_EQ(box.read(kMicFile), kMicHeader + "onetwo");

  box.write(kMarker, "");  // a plain file is a marker as well
  step("three");
  step("four");
  unlink(kMarker.c_str());
  step("gone");
  EXPECT_EQ(box.read(kMicFile), kMicHeader + "threefour");
}

TEST_F(CaptureRecordingTest, EachEndpointHasItsOwnFileLineInsWithoutHeaderLineOutNone) {
  EXPECT_EQ(record(AUDIOPROCESS_LINEIN, QV_TMP_DIR "/recCapAudioLinein.wav", {"\x01\x02", "\x03\x04"}),
            "\x01\x02\x03\x04");
  EXPECT_EQ(record(AUDIOPROCESS_ANALOGMIC, QV_TMP_DIR "/recCapAudioAnalogMic.wav", {"x"}), kMicHeader + "x");
  CaptureRecording none{};
  EXPECT_FALSE(captureRecordingFor(AUDIOPROCESS_LINEOUT, &none));
}

TEST_F(CaptureRecordingTest, FileThatCannotBeCreatedIsTriedAgainAtTheNextChunk) {
  rmdir(QV_TMP_DIR);
  ASSERT_TRUE(captureRecordingFor(AUDIOPROCESS_DIGITMIC, &rec));
  mkdir(kMarker.c_str(), 0755);
  step("lost");
  mkdir(QV_TMP_DIR, 0755);
  step("kept");
  captureRecordingClose(&rec);
  EXPECT_EQ(box.read(kMicFile), kMicHeader + "kept");
}

TEST_F(CaptureRecordingTest, CaptureStepRecordsWholeChunksOfTheDevice) {
  std::string input(2 * 32768, '\0');
  for (size_t i = 0; i < input.size(); i++) input[i] = char(i % 251);
  alsa.setCaptureData(3, input);
  testing::internal::CaptureStdout();
  ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC), 0);
  AudioEndpoint *ep = &gEndpoints[EP_DIGITMIC];
  set_params(ep);
  captureFitChunkBuffer(ep);
  ASSERT_TRUE(captureRecordingFor(AUDIOPROCESS_DIGITMIC, &rec));
  mkdir(kMarker.c_str(), 0755);
  captureStep(ep, &rec);
  captureStep(ep, &rec);
  testing::internal::GetCapturedStdout();
  captureRecordingClose(&rec);
  EXPECT_TRUE(box.read(kMicFile) == kMicHeader + input);
}
