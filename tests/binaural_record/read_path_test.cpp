// What a read takes from the port, what it queues, and what the caller gets.
#include <climits>
#include <functional>
#include <tuple>

#include <gmock/gmock.h>

#include "bcap.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"
#include "tests/binaural_record/module_fixture.h"

namespace {

using namespace vendor::corva::bluetooth_audio_extend;
using testing::Contains;
using Log = std::vector<std::string>;

constexpr char kTag[] = "BinauralRecordHalStream";
constexpr size_t kPeriod = 3840;

class ReadPath : public ModuleFixture {
 protected:
  uint64_t Reads() { return virtual_headset::GetActivity().reads; }
  int PreBytes() { return RingBuffer_available_data(runtime().preBuff); }
  int PostBytes() { return RingBuffer_available_data(runtime().postBuff); }
  BinauralStreamIn& in() { return *reinterpret_cast<BinauralStreamIn*>(stream); }
  // Reads and puts the samples at the end of `heard`.
  void Hear(size_t bytes) {
    ASSERT_EQ(Read(bytes), static_cast<ssize_t>(bytes));
    const auto* samples = reinterpret_cast<const int16_t*>(read_bytes.data());
    heard.insert(heard.end(), samples, samples + bytes / 2);
  }

  // The library passes samples through, delayed only.
  void OpenWithAllStagesOff() {
    WriteCoefficients(AllOffCoefficients());
    OpenDevice();
    SetParameters("binaural_recording_bt_name=Buds");
    ASSERT_EQ(OpenStream(), 0);
    bcap_lrc_enable_set(runtime().bcapHandle, 0);
  }

  std::vector<int16_t> heard;
};

class OpenedReadPath : public ReadPath {
  void SetUp() override { ASSERT_EQ(OpenStream(), 0); }
};

TEST_F(OpenedReadPath, OnePeriodTakesTwoBlocksAndOneSupplementaryRead) {
  EXPECT_EQ(Read(kPeriod), 3840);
  EXPECT_EQ(Reads(), 2u);  // its own and the supplementary one
  EXPECT_EQ(PostBytes(), 256);
  EXPECT_EQ(PreBytes(), 3584);
  EXPECT_EQ(Read(kPeriod), 3840);
  EXPECT_EQ(Reads(), 3u);  // enough was queued
  EXPECT_EQ(PostBytes(), 512);
  EXPECT_EQ(PreBytes(), 3328);
  EXPECT_EQ(in().frames_read_, 1920u);
}

// Every sample comes out once, in order, 1024 frames late, whatever sizes are asked for.
TEST_F(ReadPath, PcmComesThroughUnchangedAndInOrder) {
  std::vector<int16_t> pcm(2 * 48000);
  for (size_t i = 0; i < pcm.size(); ++i) {
    pcm[i] = static_cast<int16_t>((i * 7919) % 65521 - 32760);
  }
  UsePcm(pcm);
  OpenWithAllStagesOff();
  for (const size_t bytes : {3840, 4, 2048, 11520, 3840, 1000, 8, 7680, 3840, 2052, 3840}) {
    Hear(bytes);
  }
  const size_t delay = 2 * 1024;
  ASSERT_GT(heard.size(), delay + 10000);
  EXPECT_THAT(std::vector<int16_t>(heard.begin(), heard.begin() + delay), testing::Each(0));
  EXPECT_TRUE(std::equal(heard.begin() + delay, heard.end(), pcm.begin()));
}

// One misbehaviour each, after one good read: what comes back, what is said, what is kept.
TEST_F(ReadPath, FailuresReturnZeroAndSayWhy) {
  const auto fails = [this](const char* name, const std::function<void()>& spoil, size_t bytes,
                            const Log& errors, int pre_bytes, int post_bytes) {
    SCOPED_TRACE(name);
    Headset("reads full");
    ASSERT_EQ(OpenStream(), 0);
    ASSERT_EQ(Read(kPeriod), 3840);
    spoil();
    log.Take();
    EXPECT_EQ(Read(bytes), 0);
    EXPECT_EQ(log.TakeErrors(kTag), errors);
    EXPECT_EQ(PreBytes(), pre_bytes);
    EXPECT_EQ(PostBytes(), post_bytes);
    EXPECT_EQ(in().frames_read_, 960u);  // not advanced
    CloseStream();
  };
  const std::string no_data = "in_read, get no data-----";
  const std::string no_room = "in_read, RingBuffer_write failed--";
  const std::string mode = "alg_process enter, runtimeParams->bcapInfo_.mode error return----";
  const std::string full = "alg_process enter, RingBuffer_write failed-----";
  const std::string length = "supplementaryDataRead, additionReadLen error.";
  const std::string no_more = "supplementaryDataRead----RingBuffer_write failed--";
  const std::string no_block = "alg_process enter, RingBuffer_read failed----";
  const std::string too_few =
      "in_read, RingBuffer has not enough data, return 0, avail buffer 256bytes needs 1024";
  const std::string more = "alg_process, supplementaryDataRead fail----";
  const std::string failed = "in_read, alg_process failed--";
  const auto nothing = [] {};
  const auto empty = [] { Headset("reads empty"); };
  const auto mode_2 = [this] { runtime().bcapInfo_.mode = 2; };
  const auto one_channel = [this] { runtime().inBufDesc.channel_count = 1; };
  const auto post_full = [this] {
    RingBuffer_clear(runtime().preBuff);
    runtime().postBuff->start = 0;
    runtime().postBuff->end = 13400;
  };
  const auto period = [this](uint32_t frames) {
    return [this, frames] {
      RingBuffer_clear(runtime().preBuff);
      in().frames_count_ = frames;
    };
  };
  const auto no_stream = [this] {
    RingBuffer_clear(runtime().preBuff);
    gStreamIn = nullptr;
  };
  fails("nothing from the port", empty, kPeriod, {no_data}, 3584, 256);
  fails("zero bytes", nothing, 0, {no_data}, 3584, 256);
  fails("more than preBuff holds", nothing, 15360 - 3584 + 4, {no_room}, 3584, 256);
  fails("mode 2", mode_2, kPeriod, {mode, failed}, 3584 + 3840 - 2048, 256);
  fails("library error", one_channel, kPeriod, {failed}, 3584 + 3840 - 2048, 256);
  fails("postBuff full", post_full, 14336, {full, failed}, 14336 - 2048, 13400);
  fails("short period", period(100), 1024, {no_block, too_few}, 1024 + 400, 256);
  fails("long period", period(4000), 1024, {no_more, more, failed}, 1024, 256);
  fails("no global stream", no_stream, 1024, {length, more, failed}, 1024, 256);
}

TEST_F(ReadPath, NothingForTheSupplementaryReadReturnsZero) {
  UsePcm(std::vector<int16_t>(2 * 960));
  ASSERT_EQ(OpenStream(), 0);
  EXPECT_EQ(Read(kPeriod), 0);
  EXPECT_EQ(log.TakeErrors(kTag).front(), "supplementaryDataRead, readData fail----");
}

TEST_F(OpenedReadPath, PortWithoutDataIsPutIntoStandbyAndStartedAgain) {
  Headset("reads empty");
  EXPECT_EQ(Read(kPeriod), 0);
  EXPECT_EQ(in().bluetooth_input_.GetState(), BinauralStreamState::DISABLED);
  Headset("reads full");
  EXPECT_EQ(Read(kPeriod), 3840);
  EXPECT_EQ(virtual_headset::GetActivity().starts, 2u);
}

TEST_F(OpenedReadPath, RefusedStartReturnsZero) {
  Headset("start refused");
  log.Take();
  EXPECT_EQ(Read(kPeriod), 0);
  EXPECT_EQ(Lines(kTag), Log({"I in_read: state=STANDBY first time bytes=3840",
                              "I in_start: state=STARTING, in_start (start) ret=-5",
                              "E in_read: state=STARTING failed to start."}));
}

TEST_F(OpenedReadPath, DebugLinesFollowEachRead) {
  ASSERT_EQ(stream->start(stream), 0);
  Headset("position given 3840 5000000400 250000000");
  log.SetMinimumPriority(ANDROID_LOG_DEBUG);
  log.Take();
  Read(kPeriod);
  const Log block = {
      "D alg_process, preBuff read start-----", "D alg_process, preBuff read stop-----",
      "D alg_process enter, bcap_pre_process---", "D alg_process, postBuff write start-----",
      "D alg_process, postBuff write stop-----"};
  Log expected = {
      "D in_read, preBuff write start-----",
      "D in_read, preBuff write end-----",
      "D alg_process enter, ---- onceLen=2048",
      "I in_get_buffer_size: state=STARTED, buffer_size=3840, frames_count_=960",
      "I supplementaryDataRead enter, need reread additionReadLen 3840----",
      "D obtain_bluetooth_capture_position enter, frame=960 timestamp=5000000150 bytes=3840-----",
      "I supplementaryDataRead enter, save position info----",
      "D supplementaryDataRead, preBuff write start-----",
      "D supplementaryDataRead, preBuff write end-----",
      "D in_read, postBuff read start-----",
      "D in_read, postBuff read stop-----",
      "D in_read: audio RingBuffer_read bytes=3840 readLen=3840 frames_read_=960-----"};
  expected.insert(expected.begin() + 9, block.begin(), block.end());
  expected.insert(expected.begin() + 3, block.begin(), block.end());
  EXPECT_EQ(Lines(kTag), expected);
  Read(8);
  EXPECT_THAT(Lines(kTag),
              Contains("D alg_process enter, postBuff already has enough data, break-- "
                       "availableDataLen=256"));
  runtime().inBufDesc.channel_count = 1;
  Read(kPeriod);
  EXPECT_THAT(Lines(kTag), Contains("D alg_process bcap_pre_process error, ret 6"));
}

// Queued as if everything asked for had come: the tail is what the caller's buffer held before, and
// zeros in a supplementary read.
TEST_F(ReadPath, ShortPortReadsArePaddedFromTheBuffer) {
  UsePcm(std::vector<int16_t>(2 * 48000, 1000));
  OpenWithAllStagesOff();
  Headset("reads short 2000");
  read_bytes.assign(kPeriod, 0x55);
  ASSERT_EQ(stream->read(stream, read_bytes.data(), kPeriod), 3840);
  Hear(3 * kPeriod);
  // The first read gave frames 0..959 of the delayed stream, so its input begins at heard[64 frames].
  const auto at = [this](size_t frame) { return heard[2 * (frame + 1024 - 960)]; };
  EXPECT_EQ(at(499), 1000);
  EXPECT_EQ(at(500), 0x5555);
  EXPECT_EQ(at(959), 0x5555);
  EXPECT_EQ(at(960), 1000);  // supplementary read
  EXPECT_EQ(at(1460), 0);
  EXPECT_EQ(at(1919), 0);
}

TEST_F(OpenedReadPath, SupplementaryReadsSaveTwoPositionsAndThenComplain) {
  for (int k = 0; k < 3; ++k) {
    EXPECT_THAT(log.TakeErrors("BinauralRecordParseBcapAlgoConfig"), testing::IsEmpty());
    RingBuffer_clear(runtime().preBuff);
    RingBuffer_clear(runtime().postBuff);
    ASSERT_EQ(Read(kPeriod), 3840);
  }
  const auto& [first, second] = runtime().saved;
  EXPECT_TRUE(first.used && second.used);
  EXPECT_EQ(first.frames, 1920);
  EXPECT_EQ(second.frames, 3840);
  EXPECT_GT(second.time, 0);
  EXPECT_THAT(log.TakeErrors("BinauralRecordParseBcapAlgoConfig"),
              testing::ElementsAre("getTimestampSavingSpace_1_0 enter, saved too many timestamp "
                                   "error----"));
}

// Only the ring buffers' room decides, so these sizes work for ever or stop for good. One period and
// the supplementary read fill a mono session's buffer exactly, which reads as empty.
TEST_F(ReadPath, RequestsAboveThreePeriodsWedgeTheStream) {
  constexpr int kForEver = 600;
  const std::tuple<const char*, size_t, int> kCases[] = {
      {"RATE_48000 STEREO", 12288, kForEver}, {"RATE_48000 STEREO", 14336, kForEver},
      {"RATE_48000 STEREO", 11524, 512},      {"RATE_48000 STEREO", 14340, 0},
      {"RATE_44100 STEREO", 3528, kForEver},  {"RATE_44100 STEREO", 10584, kForEver},
      {"RATE_44100 STEREO", 10588, 512},      {"RATE_44100 STEREO", 12292, 0},
      {"RATE_48000 MONO", 1920, 0},
  };
  for (const auto& [session, bytes, good_reads] : kCases) {
    SCOPED_TRACE(bytes);
    Headset(std::string("parameters ") + session + " BITS_16");
    runtime().algMode = 1;  // the cheaper chain
    ASSERT_EQ(OpenStream(), 0);
    log.SetMinimumPriority(ANDROID_LOG_FATAL);
    int good = 0;
    while (good < kForEver && Read(bytes) != 0) {
      ++good;
    }
    EXPECT_EQ(good, good_reads);
    EXPECT_EQ(Read(bytes) != 0, good_reads == kForEver);
    CloseStream();
  }
}

TEST_F(OpenedReadPath, HugeAndNullRequestsAreRefused) {
  read_bytes.assign(16, 0);
  Headset("reads short 8");  // the port writes no more than this buffer holds
  EXPECT_EQ(stream->read(stream, read_bytes.data(), size_t{INT_MAX} + 1), 0);
  EXPECT_EQ(stream->read(stream, read_bytes.data(), INT_MAX), 0);
  EXPECT_EQ(stream->read(stream, nullptr, 16), 0);
}

}  // namespace
