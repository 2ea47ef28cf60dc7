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

using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;

namespace {

const std::string kDigitMicHeader(
    "\x52\x49\x46\x46\xFC\xFF\xFF\xFF\x57\x41\x56\x45\x66\x6D\x74\x20\x10\x00\x00\x00\x01\x00\x08\x00"
    "\x80\xBB\x00\x00\x00\xE8\x03\x00\x10\x00\x10\x00\x64\x61\x74\x61\xD8\xFF\xFF\xFF",
    44);

const std::string kMarker = QV_ROOT_DIR "/recaudio";

void step(CaptureRecording *rec, const std::string &chunk) {
  captureRecordingStep(rec, reinterpret_cast<const uint8_t *>(chunk.data()), chunk.size());
}

}  // namespace

class CaptureRecordingTest : public AudioTest {
 protected:
  void TearDown() override {
    captureRecordingClose(&rec);
    AudioTest::TearDown();
  }
  void marker(bool present) {
    if (present)
      mkdir(kMarker.c_str(), 0755);
    else
      rmdir(kMarker.c_str());
  }
  CaptureRecording rec{};
};

TEST_F(CaptureRecordingTest, MarkerStartsStopsAndRestartsTheDigitalMicRecording) {
  ASSERT_TRUE(captureRecordingFor(AUDIOPROCESS_DIGITMIC, &rec));
  const std::string file = QV_TMP_DIR "/recCapAudioDigitMic.wav";
  step(&rec, "before");
  EXPECT_NE(access(file.c_str(), F_OK), 0);

  marker(true);
  step(&rec, "one");
  step(&rec, "two");
  marker(false);
  step(&rec, "after");  // closes the file: everything so far is on disk
  EXPECT_EQ(box.read(file), kDigitMicHeader + "onetwo");

  box.write(kMarker, "");  // a plain file is a marker as well
  step(&rec, "three");
  step(&rec, "four");
  unlink(kMarker.c_str());
  step(&rec, "gone");
  EXPECT_EQ(box.read(file), kDigitMicHeader + "threefour");
}

TEST_F(CaptureRecordingTest, LineInRecordingIsBareSamples) {
  ASSERT_TRUE(captureRecordingFor(AUDIOPROCESS_LINEIN, &rec));
  marker(true);
  step(&rec, std::string("\x01\x02\x03\x04", 4));
  step(&rec, std::string("\x05\x06\x07\x08", 4));
  captureRecordingClose(&rec);
  EXPECT_EQ(box.read(QV_TMP_DIR "/recCapAudioLinein.wav"), std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8));
}

TEST_F(CaptureRecordingTest, AnalogMicsHaveTheirOwnFileAndLineOutHasNone) {
  ASSERT_TRUE(captureRecordingFor(AUDIOPROCESS_ANALOGMIC, &rec));
  marker(true);
  step(&rec, "x");
  captureRecordingClose(&rec);
  EXPECT_EQ(box.read(QV_TMP_DIR "/recCapAudioAnalogMic.wav"), kDigitMicHeader + "x");
  CaptureRecording none{};
  EXPECT_FALSE(captureRecordingFor(AUDIOPROCESS_LINEOUT, &none));
}

TEST_F(CaptureRecordingTest, FileThatCannotBeCreatedIsTriedAgainAtTheNextChunk) {
  ASSERT_TRUE(captureRecordingFor(AUDIOPROCESS_DIGITMIC, &rec));
  marker(true);
  rmdir(QV_TMP_DIR);
  step(&rec, "lost");
  mkdir(QV_TMP_DIR, 0755);
  step(&rec, "kept");
  captureRecordingClose(&rec);
  EXPECT_EQ(box.read(QV_TMP_DIR "/recCapAudioDigitMic.wav"), kDigitMicHeader + "kept");
}

TEST_F(CaptureRecordingTest, CaptureStepRecordsWholeChunksOfTheDevice) {
  std::string input(2 * 32768, '\0');
  for (size_t i = 0; i < input.size(); i++) input[i] = char(i % 251);
  alsa.setCaptureData(3, input);
  CaptureStdout();
  ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC), 0);
  AudioEndpoint *ep = &gEndpoints[EP_DIGITMIC];
  set_params(ep);
  captureFitChunkBuffer(ep);
  GetCapturedStdout();
  ASSERT_TRUE(captureRecordingFor(AUDIOPROCESS_DIGITMIC, &rec));
  marker(true);
  CaptureStdout();
  captureStep(ep, &rec);
  captureStep(ep, &rec);
  GetCapturedStdout();
  captureRecordingClose(&rec);
  EXPECT_TRUE(box.read(QV_TMP_DIR "/recCapAudioDigitMic.wav") == kDigitMicHeader + input);
}
