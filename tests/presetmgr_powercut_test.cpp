// Power cuts: every workload is cut off after each of its flash operations and inside it, which
// tears a word or an erase; the store restarts on what is left, and that recovery is cut off and
// torn likewise. What a
// drained flush had acknowledged is there, a change in flight is there as old or as new, nothing
// else has appeared, and the store accepts and keeps the next write.
//
// CONTROL_TEST_THIN=n tries only every n-th cut, for slow machines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "bytes.h"
#include "random.h"
#include "store_rig.h"

namespace {

// Steps are words: w<type>,<size> writes, r<type> removes, p<n> makes n passes, f formats, and a
// dot flushes until nothing is left.
struct Workload {
  const char* name;
  std::string start;  // the text of an Image
  std::string steps;
  unsigned int stride = 4;  // of the second cuts; each first cut begins at another one
};

void PrintTo(const Workload& workload, std::ostream* out) {
  *out << workload.name;
}

unsigned int thin() {
  const char* const text = std::getenv("CONTROL_TEST_THIN");
  return text == nullptr ? 1 : static_cast<unsigned int>(std::atoi(text));
}

// What the store has shown since the last acknowledged state, which is the first.
class Story {
 public:
  explicit Story(const Content& content = {}) : shown{content} {}

  const Content& latest() const { return shown.back(); }
  void accept(const Content& now) {
    if (!(now == latest())) {
      shown.push_back(now);
    }
  }
  void acknowledge() { shown = {latest()}; }

  // The entries that are in a state in which they never were; each is judged by itself.
  std::vector<unsigned int> wrong(const Content& found) const {
    std::vector<unsigned int> ids;
    for (unsigned int id = 0; id < NUM_PRESETS; ++id) {
      const auto now = found.find(id);
      if (std::none_of(shown.begin(), shown.end(), [&](const Content& content) {
            const auto then = content.find(id);
            return now == found.end() ? then == content.end()
                                      : then != content.end() && then->second == now->second;
          })) {
        ids.push_back(id);
      }
    }
    return ids;
  }

 private:
  std::vector<Content> shown;
};

class PowerCut : public testing::TestWithParam<Workload> {
 protected:
  ~PowerCut() override { std::printf("%llu power cuts\n", cutsTried); }

  // Every cut of the workload, or those at so many places, each followed by every (stride-th) cut
  // of the recovery from it.
  void cut(const Workload& workload, unsigned int places = 0xFFFFFFFF) {
    start = Image(workload.start);
    const unsigned long long total = play(workload, 0, PfSimMedium::CUT_AFTER, 0);
    const unsigned long long step = total / places + 1;
    for (unsigned long long k = step; k <= total && !HasFailure(); k += step * thin()) {
      cutAt(workload, k, PfSimMedium::CUT_AFTER, 0, workload.stride);
      // What format erases is valid until then: cut off inside, anything may be left of it.
      for (unsigned int seed = 1; cutOff.erase && !isFormatting && seed <= 200; ++seed) {
        cutAt(workload, k, PfSimMedium::CUT_INSIDE, seed, seed <= 20 ? workload.stride : 0);
      }
    }
  }

 private:
  void cutAt(const Workload& workload, unsigned long long k, PfSimMedium::Cut kind,
             unsigned int seed, unsigned int stride) {
    SCOPED_TRACE("operation " + std::to_string(k) + ", tear " + std::to_string(seed));
    play(workload, k, kind, seed);
    tearWord(true);
    recover(stride, stride > 0 ? 1 + k % stride : 0);
  }

  // The operation started last, if it was a word, cut off inside: of the bits that it clears a few
  // random subsets, or each one alone and all but each one, too. Leaves the medium with all of
  // them.
  void tearWord(bool everyBit) {
    const PfSimMedium::Operation op = rig.part.lastOperation();
    const NorArray whole = rig.part.array();
    const unsigned int clears = op.before & ~unsigned{op.word};
    const Story judged = story;
    NorArray torn = whole;
    for (unsigned int i = everyBit ? 0 : 32; i < 34 && !op.erase && !HasFailure(); ++i) {
      const unsigned int subset = i < 32 ? (1U << i % 16) ^ (i < 16 ? 0 : 0xFFFF) : tears.word();
      const unsigned int left = op.before & ~(clears & subset);
      if (left != op.before && left != whole.word(op.addr)) {  // those are cuts between operations
        SCOPED_TRACE("torn into " + std::to_string(left));
        putBigEndian(torn.bytes + op.addr, 2, left);
        rig.part.powerUp();
        rig.part.load(torn);
        look();
        i % 16 == 0 ? keepOn() : void();
        story = judged;
      }
    }
    rig.part.powerUp();
    rig.part.load(whole);
  }

  // From power-up to the end of the workload or of the power. The number of its operations.
  unsigned long long play(const Workload& workload, unsigned long long cut, PfSimMedium::Cut kind,
                          unsigned int seed) {
    rig.restartOn(start);
    rig.part.clearCounters();
    rig.part.cutAt(cut, kind, seed);
    story = Story(rig.content());
    stamp = 0;
    isFormatting = false;
    std::istringstream steps(workload.steps);
    for (std::string step; rig.part.powered() && steps >> step;) {
      apply(step);
    }
    cutOff = rig.part.lastOperation();
    return rig.part.counters().words + rig.part.counters().erases;
  }

  void apply(const std::string& step) {
    char verb = 0;
    unsigned int a = 0, b = 0;
    std::sscanf(step.c_str(), "%c%u,%u", &verb, &a, &b);
    Content expected = story.latest();
    if (verb == 'w') {
      return write(a, b);
    }
    if (verb == 'r') {
      rig.remove(static_cast<unsigned short>(a));
      for (const auto& [id, preset] : story.latest()) {
        if (preset.type == a) {
          expected.erase(id);
          break;
        }
      }
    } else if (verb == 'f') {
      PresetMgr::format();
      expected.clear();
      isFormatting = true;
    }
    bool isDone = verb == '.' && rig.drain();
    for (; verb == 'p' && a > 0; --a) {
      isDone = rig.pass();
    }
    ASSERT_EQ(rig.content(), expected) << step;
    story.accept(expected);
    if (isDone && rig.part.powered()) {
      story.acknowledge();
      isFormatting = false;
    }
  }

  // Writes bytes that no other write has. Exactly one entry changes, and to these.
  void write(unsigned int type, unsigned int size) {
    ++stamp;
    std::string bytes(size, static_cast<char>('a' + stamp % 26));
    bytes.replace(0, size < 2 ? size : 2, size < 2 ? size : 2, static_cast<char>(stamp));
    const Stored preset = {static_cast<unsigned short>(type), bytes};
    const int res = rig.write(preset.type, bytes);
    const Content now = rig.content();
    Content expected = story.latest();
    for (const auto& [id, found] : now) {
      if (res == ERR_OK && found == preset) {
        expected[id] = preset;
      }
    }
    ASSERT_EQ(now, expected);
    ASSERT_EQ(res == ERR_OK, !(now == story.latest()));
    story.accept(now);
  }

  // Restarts on what the cut has left, looks, and writes on. A stride above 0 cuts that off, too,
  // at operation `first` and every `stride` behind it.
  void recover(unsigned int stride, unsigned long long first) {
    const NorArray left = rig.part.array();
    look();
    const Content found = rig.content();
    for (unsigned long long j = first; stride > 0; j += stride * thin()) {
      SCOPED_TRACE("second cut at operation " + std::to_string(j));
      if (!cutAgain(left, found, j, PfSimMedium::CUT_AFTER, 0)) {
        break;
      }
      for (unsigned int seed = 1; cutOff.erase && seed <= 2; ++seed) {
        cutAgain(left, found, j, PfSimMedium::CUT_INSIDE, seed);
      }
    }
    rig.restartOn(left);
    keepOn();
  }

  // Cuts the recovery on `left` off, which has shown `found`. False when it needs no `j`
  // operations.
  bool cutAgain(const NorArray& left, const Content& found, unsigned long long j,
                PfSimMedium::Cut kind, unsigned int seed) {
    rig.restartOn(left);
    rig.part.cutAt(j, kind, seed);
    story = Story(found);
    writeOn();
    if (rig.drain() || HasFailure()) {
      return false;
    }
    cutOff = rig.part.lastOperation();
    tearWord(false);
    look();
    keepOn();
    return true;
  }

  // Restarts on what the medium holds; nothing is lost and nothing has returned.
  void look() {
    ++cutsTried;
    rig.restart();
    ASSERT_EQ(story.wrong(rig.content()), std::vector<unsigned int>()) << Print(rig.content());
  }

  // The store takes a write, comes to rest, and shows the same after a restart.
  void keepOn() {
    story = Story(rig.content());
    writeOn();
    ASSERT_TRUE(rig.drain());
    ASSERT_EQ(rig.content(), story.latest());
    rig.restart();
    ASSERT_EQ(rig.content(), story.latest());
  }

  // A new preset, or in a full store a rewrite of one.
  void writeOn() {
    const Content before = story.latest();
    write(0x1ABC, 5);
    if (story.latest() == before) {
      ASSERT_FALSE(before.empty());
      const Stored any = before.rbegin()->second;
      write(any.type, static_cast<unsigned int>(any.bytes.size()));
      ASSERT_FALSE(story.latest() == before);
    }
  }

  static std::string Print(const Content& content) { return testing::PrintToString(content); }

  StoreRig rig;
  NorArray start;
  Story story;
  PfSimMedium::Operation cutOff = {};
  unsigned int stamp = 0;
  bool isFormatting = false;
  unsigned long long cutsTried = 0;
  Random tears{1};
};

const Workload WORKLOADS[] = {
    {"append_rewrite_remove", "",
     "w1,5 w2,8 . w1,7 p4 w3,1 w1,9 . r2 w1,3 p3 r1 w4,6 p9 w2,2 r3 . w2,4 p2 r2 . w5,10 ."},
    {"one_id_over_and_over", "",
     "w1,4 . r1 w2,6 p1 w2,8 p3 r2 . w1,4 . w1,6 p8 r1 w3,4 . r3 w3,2 p1 r3 p1 w1,4 . w1,6 p9 r1 . "
     "w1,2 . r1 w2,2 p1 r2 p1 ."},
    {"a_full_block_is_copied",
     "@8192 7FFE 0 live:1,2,*6 live:2,4,*12 live:3,6,*18 live:4,8,*24 dead:7,20,*8038",
     "w5,20 . w2,40 . r1 w3,5 ."},
    {"a_batch_outgrows_the_block",
     "7FFE 0 live:1,2,*6 live:2,4,*12 live:3,6,*18 live:4,8,*24 dead:7,20,*8038",
     "w5,10 w6,10 p3 w6,200 w7,9 ."},
    {"entries_leave_and_join_a_copy",
     "7FFE 0 live:1,2,*6 live:2,4,*12 live:3,6,*18 live:4,8,*24 dead:7,20,*8098",
     "w1,9 p5 w2,11 w1,8 p10 r3 w5,4 p10 r2 w6,4 p7 r6 w4,4 p5 r1 w7,4 . r7 ."},
    {"entries_change_places_in_a_copy",
     "@8192 7FFE 0 live:1,2,*6 live:2,4,*12 live:3,6,*18 live:4,8,*24 dead:7,20,*8098",
     "w2,5 p12 w1,7 w4,9 . w1,3 ."},
    {"the_target_of_a_copy_overflows",
     "7FFE 0 live:1,0,*200 live:2,1,*20 live:3,2,*30 dead:4,3,*7900",
     "w2,30 p110 w1,10 w3,7960 p20 w4,6 p4 r3 . w1,8 ."},
    {"version_0_is_converted",
     "@8192 7FFF live0:3,0,three dead0:9,1,gone live0:4,1,four live0:5,299,fivefive",
     "p3 w3,9 p9 r4 w6,3 . w5,1 ."},
    {"format_with_something_in_flight",
     "7FFE 0 live:1,2,*6 live:2,4,*12 live:3,6,*18 live:4,8,*24 dead:7,20,*8068",
     "w1,4 p3 f p1 w2,6 . r2 w3,4 p1 f . w1,4 p10 f w4,4 . f p1 f ."},
    {"two_live_records_of_one_id", "@8192 7FFE 0 live:1,5,old live:2,6,two live:1,5,newer",
     "p7 w1,4 p5 r1 . w2,4 ."},
    {"two_live_records_removed", "7FFE 0 live:1,0,old live:2,1,two live:1,0,newer",
     "w2,4 p2 r1 w1,2 . w4,4 r1 p2 w1,4 ."},
    {"an_unconfirmed_record", "7FFE 0 live:1,5,kept open:2,6,half", "p2 w1,4 . w2,4 ."},
    {"a_stray_last_word", "7FFE 0 live:1,2,*6 dead:7,20,*8154 @8190 1234", "w9,10 . w9,2 ."},
    {"two_valid_blocks", "7FFE 0 live:1,2,aa dead:7,20,*20 @8192 7FFE 0 live:1,2,bb",
     "p1 w1,6 p2 r1 w2,6 ."},
    {"two_valid_blocks_formatted", "7FFE 0 live:1,2,bb @8192 7FFE 0 live:1,2,aa dead:7,20,*20",
     "f p1 w2,6 ."},
    {"a_corrupt_log", "7FFE 0 live:1,300,bad", "p1 w1,6 ."},
    {"everything", "@8192 7FFF live0:3,0,three live0:4,1,four",
     "w1,5 . w9,8000 w3,9 . r9 w2,4 . w1,40 w4,44 . w1,50 p9 w3,7 r2 . w1,6 . r4 w2,6 p3 f w5,8 .",
     40},
};

TEST_P(PowerCut, AnywhereAndOnceMoreInTheRecovery) {
  cut(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Workloads, PowerCut, testing::ValuesIn(WORKLOADS),
                         testing::PrintToStringParamName());

// Workloads that nobody thought of, each cut off at a few random places.
using RandomPowerCut = PowerCut;
TEST_F(RandomPowerCut, InARandomWorkload) {
  const char* const more = std::getenv("CONTROL_TEST_SEEDS");
  const unsigned int seeds = more != nullptr ? static_cast<unsigned int>(std::atoi(more)) : 500;
  for (unsigned int seed = 1; seed <= seeds && !HasFailure(); seed += thin()) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    const unsigned int most = random.oneIn(3) ? 2500 : random.oneIn(2) ? 300 : 12;
    std::ostringstream steps;
    for (unsigned int n = 10 + random.below(60); n > 0; --n) {
      const unsigned int verb = random.below(40);
      if (verb < 12) {
        steps << " w" << 1 + random.below(7) << ',' << 1 + random.below(most);
      } else if (verb < 18) {
        steps << " r" << 1 + random.below(7);
      } else if (verb < 38) {
        steps << " p" << 1 + random.below(random.oneIn(4) ? 300 : 12);
      } else {
        steps << (random.oneIn(8) ? " f" : " .");
      }
    }
    const Workload& other = WORKLOADS[random.below(std::size(WORKLOADS))];
    cut({"random", other.start, steps.str(), 200}, 12);
  }
}

}  // namespace
