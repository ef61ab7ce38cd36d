#include "crc.h"

#include <array>
#include <utility>

#if defined(__x86_64__) && defined(__GNUC__)
#define CRC_HAS_CARRYLESS_MULTIPLY 1
#include <immintrin.h>

#include <cstring>

#include "debug.h"
#endif

namespace {

using Table = std::array<unsigned short, 256>;

// Multiplies the register by x, modulo the polynomial.
constexpr unsigned int timesX(unsigned int crc) {
  return ((crc << 1) ^ ((crc & 0x8000U) != 0 ? 0x1021U : 0U)) & 0xFFFFU;
}

constexpr unsigned int timesPowerOfX(unsigned int crc, unsigned int power) {
  for (; power > 0; --power) {
    crc = timesX(crc);
  }
  return crc;
}

// How many bytes the table form takes at a time.
constexpr std::size_t STEP = 16;

// tables[n][i] is i times x^(16 + 8n): what byte i becomes when n bytes and a register's width
// have gone in behind it. The remainder is linear, so the bytes of a step are looked up
// independently of one another and only added together.
constexpr std::array<Table, STEP> makeTables() {
  std::array<Table, STEP> all{};
  for (unsigned int i = 0; i < 256; ++i) {
    unsigned int crc = i;
    for (std::size_t n = 0; n < STEP; ++n) {
      crc = timesPowerOfX(crc, n == 0 ? 16 : 8);
      all[n][i] = static_cast<unsigned short>(crc);
    }
  }
  return all;
}

constexpr std::array<Table, STEP> tables = makeTables();
constexpr const Table& crcTable = tables[0];
static_assert(crcTable[1] == 0x1021 && crcTable[2] == 0x2042);

// The register moved on by STEP bytes of zeros.
unsigned int movedByStep(unsigned short crc) {
  return static_cast<unsigned int>(tables[STEP - 1][crc >> 8] ^ tables[STEP - 2][crc & 0xFF]);
}

// What the bytes of a step but the last two contribute to the register behind it.
template <std::size_t... N>
unsigned int lookedUp(const unsigned char* bytes, std::index_sequence<N...>) {
  return static_cast<unsigned int>((0 ^ ... ^ tables[STEP - 3 - N][bytes[N]]));
}

unsigned short byTables(unsigned short crc, const unsigned char* pBuf, std::size_t bufSize) {
  for (; bufSize >= STEP; bufSize -= STEP, pBuf += STEP) {
    const unsigned int last = static_cast<unsigned int>(pBuf[STEP - 2] << 8 | pBuf[STEP - 1]);
    crc = static_cast<unsigned short>(movedByStep(crc) ^
                                      lookedUp(pBuf, std::make_index_sequence<STEP - 2>{}) ^ last);
  }
  for (; bufSize > 0; --bufSize, ++pBuf) {
    crc = static_cast<unsigned short>((crc << 8) ^ *pBuf ^ crcTable[crc >> 8]);
  }
  return crc;
}

#if CRC_HAS_CARRYLESS_MULTIPLY

// The same with the processor's carry-less multiplication, where it has one. Four accumulators of
// 16 bytes hold polynomials; moving one on by n bits multiplies its two halves by x^(n + 64) and
// x^n modulo the polynomial, which leaves the remainder as it is.
#define CARRYLESS __attribute__((target("pclmul,ssse3")))

constexpr std::size_t LANES = 4;
constexpr std::size_t LANE_BYTES = 16;
constexpr std::size_t ROUND = LANES * LANE_BYTES;
static_assert(LANE_BYTES == STEP, "movedByStep moves the register past the first lane");

CARRYLESS inline __m128i mirrored(__m128i lane) {
  return _mm_shuffle_epi8(lane, _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

CARRYLESS inline __m128i load(const unsigned char* bytes) {
  __m128i lane;
  std::memcpy(&lane, bytes, sizeof lane);
  return mirrored(lane);
}

template <unsigned int BITS>
CARRYLESS inline __m128i movedBy(__m128i lane) {
  constexpr unsigned int high = timesPowerOfX(1, BITS + 64);
  constexpr unsigned int low = timesPowerOfX(1, BITS);
  const __m128i powers = _mm_set_epi64x(high, low);
  return _mm_xor_si128(_mm_clmulepi64_si128(lane, powers, 0x11),
                       _mm_clmulepi64_si128(lane, powers, 0x00));
}

// REQUIRES: bufSize is at least ROUND.
CARRYLESS unsigned short byMultiplication(unsigned short crc, const unsigned char* pBuf,
                                          std::size_t bufSize) {
  CTRL_ASSERT(bufSize >= ROUND);
  __m128i lanes[LANES];
  for (std::size_t i = 0; i < LANES; ++i) {
    lanes[i] = load(pBuf + i * LANE_BYTES);
  }
  lanes[0] = _mm_xor_si128(lanes[0], _mm_cvtsi32_si128(static_cast<int>(movedByStep(crc))));
  pBuf += ROUND;
  bufSize -= ROUND;
  for (; bufSize >= ROUND; bufSize -= ROUND, pBuf += ROUND) {
    for (std::size_t i = 0; i < LANES; ++i) {
      lanes[i] = _mm_xor_si128(movedBy<8 * ROUND>(lanes[i]), load(pBuf + i * LANE_BYTES));
    }
  }
  __m128i sum = lanes[0];
  for (std::size_t i = 1; i < LANES; ++i) {
    sum = _mm_xor_si128(movedBy<8 * LANE_BYTES>(sum), lanes[i]);
  }
  unsigned char bytes[LANE_BYTES];
  sum = mirrored(sum);
  std::memcpy(bytes, &sum, sizeof bytes);
  return byTables(byTables(0, bytes, sizeof bytes), pBuf, bufSize);
}

const bool canMultiply = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3");

#endif

}  // namespace

unsigned short calcCRC16(unsigned short crc, const unsigned char* pBuf, std::size_t bufSize) {
#if CRC_HAS_CARRYLESS_MULTIPLY
  if (canMultiply && bufSize >= ROUND) {
    return byMultiplication(crc, pBuf, bufSize);
  }
#endif
  return byTables(crc, pBuf, bufSize);
}
