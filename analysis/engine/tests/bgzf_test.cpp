// BGZF inflated on several threads: the same bytes and rows as gzip read on one thread, damage
// refused after every good byte before it, and no thread left behind by a reader that stops.
#include "bgzf_codec.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>
#include <tuple>

#include "engine_test_support.h"
#include "genostat/engine.h"
#include "genostat/input_error.h"

namespace genostat {
namespace {

// Several pieces' worth (a piece is about 1 MiB of text).
const std::string& bigText() {
  static const std::string text = testing::makeFastq(12000);
  return text;
}

std::vector<Inflater> inflaters() {
  if (isalAvailable()) return {Inflater::Zlib, Inflater::Isal};
  return {Inflater::Zlib};
}

// The reader's refusal of `bytes` read on `threads` threads.
std::string refusal(const std::string& bytes, Inflater inflater, unsigned threads) {
  testing::KeepingSink sink;
  try {
    readFastq(*openDecodedSource(memorySource(bytes), "x.gz", inflater, nullptr, threads), "x.gz", sink);
  } catch (const InputError& error) {
    return error.message();
  }
  return "accepted";
}

TEST(ThreadedBgzf, ReadsEveryShapeOfStreamAsGzip) {
  const std::string& text = bigText();
  const std::string half = text.substr(0, text.size() / 2), rest = text.substr(text.size() / 2);
  std::string endPastTheFile = testing::bgzf(text);
  endPastTheFile[endPastTheFile.size() - 28 + 16] = '\xff';  // BSIZE of the end member
  // A member stating 100 bytes less than it has: its "trailer" is then compressed data, whose
  // stated length (almost surely beyond BGZF's 64 KiB) makes the rest read as plain gzip.
  std::string shortMember = testing::bgzfMember(text.substr(0, 20000));
  shortMember[16] = static_cast<char>((shortMember.size() - 101) & 0xff);
  shortMember[17] = static_cast<char>((shortMember.size() - 101) >> 8);
  const std::pair<std::string, std::string> cases[] = {
      {testing::bgzf(text), text},
      {testing::bgzf(text, 3000, std::string("XY\x03\0abc", 7)), text},  // BC after another subfield
      {testing::bgzf(half) + testing::gzipMember(rest.substr(0, 5000)) + testing::bgzf(rest.substr(5000)), text},
      {testing::bgzf(text) + std::string(5000, '\0'), text},
      {endPastTheFile, text},  // the rest is read as gzip, which does not look at BSIZE
      {testing::bgzfMember(text.substr(0, 20000)) + shortMember + testing::bgzf(text.substr(20000)),
       text.substr(0, 20000) + text},
      {testing::bgzf(""), ""},
  };
  for (const auto& [bytes, expected] : cases) {
    for (Inflater inflater : inflaters()) {
      for (unsigned threads : {2u, 3u}) {
        Compression detected = Compression::Plain;
        auto source = openDecodedSource(memorySource(bytes), "x", inflater, &detected, threads);
        EXPECT_EQ(detected, Compression::Bgzf);
        EXPECT_TRUE(testing::readAll(*source, threads == 2 ? 777 : 1 << 20) == std::make_pair(expected, std::string()))
            << expected.size() << " " << threads;
      }
    }
  }
}

TEST(ThreadedBgzf, DamageIsRefusedAfterEveryGoodByteBeforeIt) {
  const std::string& text = bigText();
  constexpr std::size_t kChunk = 20000, kBad = 60;  // the bad member is inside the second piece
  std::vector<std::string> members;
  for (std::size_t at = 0; at < text.size(); at += kChunk) {
    members.push_back(testing::bgzfMember(text.substr(at, kChunk)));
  }
  std::size_t badAt = 0;  // where the bad member starts
  for (std::size_t i = 0; i < kBad; ++i) badAt += members[i].size();
  const auto with = [&members](const std::function<void(std::string&)>& damage) {
    std::string out;
    for (std::size_t i = 0; i < members.size(); ++i) {
      std::string member = members[i];
      if (i == kBad) damage(member);
      out += member;
    }
    return out + testing::bgzfMember("");
  };
  const std::size_t good = kBad * kChunk;
  // Bytes, the reason, and the text handed out before it (npos: as much as one thread hands out).
  const std::tuple<std::string, std::string, std::size_t> cases[] = {
      {with([](std::string& m) { m[m.size() - 8] ^= 1; }), "damaged gzip stream: checksum mismatch", good},
      {with([](std::string& m) { m[m.size() - 4] ^= 1; }), "damaged gzip stream: length mismatch", good},
      {with([](std::string& m) { std::fill(m.begin() + 30, m.begin() + 60, '\xff'); }), "damaged gzip stream: ", good},
      {with([](std::string& m) { m[2] = 7; }), "damaged gzip stream: ", good},  // not deflate: read as gzip
      // The file ends inside a member (its BSIZE reaches past the end).
      {with([](std::string&) {}).substr(0, badAt + members[kBad].size() / 2), "truncated gzip stream: ",
       std::string::npos},
      {testing::bgzf(text) + "junk", "damaged gzip stream: data after the end of a member is not another member",
       text.size()},
  };
  // A stream that fails to read (a disk error) after whole members: every one of them first.
  for (unsigned threads : {2u, 4u}) {
    auto failing = std::make_unique<testing::ChunkedSource>(with([](std::string&) {}).substr(0, badAt), 5000, true);
    auto source = openDecodedSource(std::move(failing), "x", Inflater::Default, nullptr, threads);
    EXPECT_TRUE(testing::readAll(*source) ==
                std::make_pair(text.substr(0, good), std::string("damaged gzip stream: test")));
  }
  for (const auto& [bytes, reason, goodBytes] : cases) {
    for (Inflater inflater : inflaters()) {
      std::string expected = refusal(bytes, inflater, 1);
      if (goodBytes != std::string::npos) {
        const auto newlines = static_cast<std::size_t>(std::count(text.begin(), text.begin() + goodBytes, '\n'));
        expected = "record " + std::to_string(newlines / 4 + 1) + ", line " + std::to_string(newlines + 1) + ": ";
      }
      for (unsigned threads : {2u, 4u}) {
        const std::string message = refusal(bytes, inflater, threads);
        EXPECT_EQ(message.substr(0, expected.size()), expected) << reason;
        EXPECT_NE(message.find(reason), std::string::npos) << message;
      }
    }
  }
}

TEST(ThreadedBgzf, SameRowAsPlainAndGzipWhateverTheThreads) {
  testing::TempDir dir;
  const std::string& text = bigText();
  const std::string plain = dir.write("a.fastq", text), gz = dir.write("b.fq.gz", testing::gzipMember(text)),
                    bgzf = dir.write("c.fq.gz", testing::bgzf(text));
  const auto row = [](const std::string& file, unsigned threads, Inflater inflater = Inflater::Default) {
    EngineOptions options;
    options.threads = threads;
    options.inflater = inflater;
    auto fields = runEngine({file}, options).at(0);
    fields.erase(fields.begin());  // the sample's name
    return fields;
  };
  const auto expected = row(plain, 1);
  EXPECT_EQ(expected.size(), 26u);
  for (unsigned threads : {1u, 2u, 4u}) {
    EXPECT_EQ(row(gz, threads), expected) << threads;
    EXPECT_EQ(row(bgzf, threads), expected) << threads;
    EXPECT_EQ(row(bgzf, threads, Inflater::Zlib), expected) << threads;
  }
  // A file read alone gets every thread; several files one worker each, as many threads as all get.
  const std::tuple<unsigned, std::size_t, unsigned, unsigned> plans[] = {
      {1, 1, 1, 1}, {4, 1, 1, 4}, {4, 2, 2, 2}, {5, 2, 2, 2}, {3, 5, 3, 1}};
  for (const auto& [threads, files, workers, perFile] : plans) {
    const ThreadPlan plan = planThreads(threads, files);
    EXPECT_EQ(std::make_pair(plan.workers, plan.threadsPerFile), std::make_pair(workers, perFile))
        << threads << " " << files;
  }
}

// BGZF that never ends: the producer fills every slot and waits for room.
class EndlessBgzf final : public ByteSource {
 public:
  std::size_t read(char* buffer, std::size_t capacity) override {
    const std::size_t n = std::min(capacity, member_.size() - at_);
    member_.copy(buffer, n, at_);
    at_ = (at_ + n) % member_.size();
    return n;
  }

 private:
  const std::string member_ = testing::bgzfMember(testing::makeFastq(300));
  std::size_t at_ = 0;
};

TEST(ThreadedBgzf, StopsWhenDroppedMidStream) {
  for (unsigned threads : {2u, 4u}) {
    auto source = openDecodedSource(std::make_unique<EndlessBgzf>(), "x", Inflater::Default, nullptr, threads);
    std::string some(100000, '\0');
    EXPECT_EQ(source->read(some.data(), some.size()), some.size());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // until every slot is full
    source.reset();
  }
  // The reader stops at the first bad record; the rest is never read.
  EXPECT_EQ(refusal(testing::bgzf("@r\nAC\n+\nI\n" + bigText()), Inflater::Default, 4),
            "record 1, line 4: quality length 1 differs from sequence length 2");
}

}  // namespace
}  // namespace genostat
