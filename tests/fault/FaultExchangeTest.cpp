#include "host/fault/FaultExchange.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace corvane::host {
namespace {

using Sector = std::vector<uint8_t>;

TEST(FaultExchange, WhatIsThereIsTakenAtOnce) {
  FaultExchange exchange;
  exchange.publish({1, 2, 3});
  EXPECT_EQ(exchange.take(), (Sector{1, 2, 3}));
}

TEST(FaultExchange, EveryDriveGetsTheSameSector) {
  FaultExchange exchange;
  exchange.publish({1, 2, 3});
  EXPECT_EQ(exchange.take(), exchange.take());
}

TEST(FaultExchange, TheLatestSectorIsTaken) {
  FaultExchange exchange;
  exchange.publish({1});
  exchange.publish({2});
  EXPECT_EQ(exchange.take(), Sector{2});
}

TEST(FaultExchange, ATakerWaitsForAnotherThread) {
  FaultExchange exchange;
  Sector first;
  Sector second;
  std::thread taker([&] { first = exchange.take(); });
  std::thread otherTaker([&] { second = exchange.take(); });
  exchange.publish({7, 8});
  taker.join();
  otherTaker.join();
  EXPECT_EQ(first, (Sector{7, 8}));
  EXPECT_EQ(second, (Sector{7, 8}));
}

}  // namespace
}  // namespace corvane::host
