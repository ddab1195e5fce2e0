#include "ui/progress_text.h"

#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace kvx {
namespace {

constexpr uint64_t kb = 1024;
constexpr uint64_t mb = 1024 * kb;
constexpr uint64_t gb = 1024 * mb;

struct DetailCase {
  ProgressMode mode;
  uint64_t done;
  uint64_t total;
  double rate;  // bytes per second
  const wchar_t* line;
};

TEST(ProgressDetail, IsTheLineOfItsMode) {
  constexpr auto busy = ProgressMode::busy;
  constexpr auto checking = ProgressMode::checking;
  constexpr auto transfer = ProgressMode::transfer;
  constexpr auto files = ProgressMode::files;
  const DetailCase cases[] = {
      {busy, 0, 0, 0, L"given"},
      {busy, 5, 10, 1000, L"given"},
      {static_cast<ProgressMode>(4), 5, 10, 1000, L"given"},
      {static_cast<ProgressMode>(0xFFFFFFFF), 5, 10, 0, L"given"},

      {checking, 0, 0, 0, L"Checked 0 bytes of 0 bytes"},
      {checking, 1023, 1024, 0, L"Checked 1023 bytes of 1 KB"},
      {checking, 5 * mb, 3 * gb / 2, 0, L"Checked 5.0 MB of 1.50 GB"},
      {checking, 5 * mb, 6 * mb, 1000000, L"Checked 5.0 MB of 6.0 MB"},  // no rate outside a transfer

      {transfer, 0, 0, 0, L"0 bytes of 0 bytes"},
      {transfer, 0, 10 * mb, 0, L"0 bytes of 10.0 MB"},
      {transfer, 10 * mb, 10 * mb, 0, L"10.0 MB of 10.0 MB"},
      {transfer, 10 * mb, 10 * mb, 0.99, L"10.0 MB of 10.0 MB"},
      {transfer, 10 * mb, 10 * mb, 1.0, L"10.0 MB of 10.0 MB"},  // a rate must exceed 1 byte/s
      {transfer, 10 * mb, 10 * mb, 1.001, L"10.0 MB of 10.0 MB   -   1 bytes/s   -   about 0 s left"},
      {transfer, 10 * mb, 10 * mb, 2048.9, L"10.0 MB of 10.0 MB   -   2 KB/s   -   about 0 s left"},
      {transfer, 0, 0, 5000, L"0 bytes of 0 bytes   -   5 KB/s   -   about 0 s left"},
      {transfer, 48 * mb, 1256277934, 2411724.8, L"48.0 MB of 1.17 GB   -   2.3 MB/s   -   about 8 min left"},
      {transfer, 48 * mb, 1256277934, 2200000, L"48.0 MB of 1.17 GB   -   2.1 MB/s   -   about 9 min left"},
      {transfer, 0, 1024, 1023.999,
       L"0 bytes of 1 KB   -   1023 bytes/s   -   about 1 s left"},  // truncated, not rounded
      {transfer, 0, 3600000, 1000, L"0 bytes of 3.4 MB   -   1000 bytes/s   -   about 1 h 00 min left"},
      {transfer, 0, 360000000, 1000, L"0 bytes of 343.3 MB   -   1000 bytes/s   -   about 100 h 00 min left"},
      {transfer, 0, 360001000, 1000, L"0 bytes of 343.3 MB   -   1000 bytes/s"},  // beyond 100 hours no time is told
      {transfer, 0, 4 * gb, 1.5, L"0 bytes of 4.00 GB   -   1 bytes/s"},

      {files, 0, 0, 0, L"File 0 of 0"},
      {files, 7, 120, 0, L"File 7 of 120"},
      {files, 1234567, 12345678, 5000, L"File 1234567 of 12345678"},
      {files, std::numeric_limits<uint64_t>::max(), std::numeric_limits<uint64_t>::max(), 0,
       L"File 18446744073709551615 of 18446744073709551615"},
  };
  for (const DetailCase& item : cases) {
    EXPECT_EQ(progress_detail({item.mode, item.total, item.done}, L"given", item.rate), item.line)
        << "mode " << static_cast<uint32_t>(item.mode) << ", " << item.done << " of " << item.total << " at "
        << item.rate;
  }
}

TEST(ProgressPosition, IsTheTruncatedShareOfTenThousand) {
  constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
  const struct {
    uint64_t done;
    uint64_t total;
    int position;
  } cases[] = {
      {0, 0, 0},     {0, 1, 0},     {1, 1, 10000},       {1, 2, 5000},           {1, 3, 3333},
      {2, 3, 6666},  {1, 10001, 0}, {1, 10000, 1},       {9999, 10000, 9999},    {10000, 10001, 9999},
      {7, 120, 583}, {0, most, 0},  {most, most, 10000}, {most / 2, most, 5000}, {gb, 4 * gb, 2500},
  };
  for (const auto& item : cases) {
    for (const ProgressMode mode : {ProgressMode::checking, ProgressMode::transfer, ProgressMode::files}) {
      EXPECT_EQ(progress_position({mode, item.total, item.done}), item.position) << item.done << " of " << item.total;
    }
  }
}

struct Sample {
  uint32_t tick_ms;
  uint64_t bytes_done;
};

TEST(TransferRate, IsMeasuredOverAboutTheLastSixSeconds) {
  const struct {
    const char* name;
    std::vector<Sample> samples;
    double rate;
    size_t kept;
  } cases[] = {
      {"no sample", {}, 0, 0},
      {"one sample", {{1000, 500}}, 0, 1},
      {"half a second is too short", {{0, 0}, {500, 5000}}, 0, 2},
      {"a little more than half a second", {{0, 0}, {501, 5010}}, 10000, 2},
      {"every sample counts towards the span", {{0, 0}, {200, 10}, {400, 20}, {600, 6000}}, 10000, 4},
      {"the first sample need not be 0 bytes", {{0, 4000}, {1000, 6000}}, 2000, 2},
      {"no growth", {{0, 700}, {1000, 700}}, 0, 2},
      {"fewer bytes than before", {{0, 9000}, {1000, 100}}, 0, 2},
      {"6.000 s old is kept", {{0, 0}, {3000, 600}, {6000, 6000}}, 1000, 3},
      {"6.001 s old is dropped", {{0, 0}, {3000, 0}, {6001, 3001}}, 1000, 2},
      {"several old ones go at once", {{0, 0}, {100, 1}, {200, 2}, {5000, 1000}, {7000, 3000}}, 1000, 2},
      {"two samples stay, however old", {{0, 0}, {60000, 60000}}, 1000, 2},
      {"a stall of more than 6 s", {{0, 0}, {1000, 5000}, {4000, 5000}, {7001, 5000}, {10002, 5000}}, 0, 2},
      {"a drop counts until it leaves the window", {{0, 9000}, {1000, 0}, {5000, 4000}}, 0, 3},
      {"after that the rate is back", {{0, 9000}, {1000, 0}, {5000, 4000}, {6500, 5500}}, 1000, 3},
      {"the tick count wraps", {{0xFFFFFE0C, 0}, {500, 2000}}, 2000, 2},
      {"the tick count wraps, old ones go", {{0xFFFFF000, 0}, {0xFFFFFE0C, 100}, {5500, 6100}}, 1000, 2},
  };
  for (const auto& item : cases) {
    TransferRate rate;
    for (const Sample& sample : item.samples) rate.add_sample(sample.tick_ms, sample.bytes_done);
    EXPECT_DOUBLE_EQ(rate.bytes_per_second(), item.rate) << item.name;
    EXPECT_EQ(rate.sample_count(), item.kept) << item.name;
  }
}

TEST(TransferRate, KeepsAboutSixSecondsOfRegularSamples) {
  TransferRate rate;
  for (uint32_t i = 0; i < 1000; ++i) rate.add_sample(i * 200, uint64_t{i} * 400);
  EXPECT_EQ(rate.sample_count(), 31U);
  EXPECT_DOUBLE_EQ(rate.bytes_per_second(), 2000);
}

TEST(TransferRate, StartsFromScratchAfterClear) {
  TransferRate rate;
  rate.add_sample(0, 0);
  rate.add_sample(1000, 5000);
  rate.clear();
  EXPECT_EQ(rate.sample_count(), 0U);
  rate.add_sample(1200, 6000);
  EXPECT_EQ(rate.bytes_per_second(), 0);
  rate.add_sample(2200, 7000);
  EXPECT_DOUBLE_EQ(rate.bytes_per_second(), 1000);
}

}  // namespace
}  // namespace kvx
