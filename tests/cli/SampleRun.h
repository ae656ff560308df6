#pragma once

#include <vector>

#include "host/cli/RunSettings.h"
#include "host/run/RunResult.h"
#include "host/run/TestRun.h"

namespace corvane::host::testing {

/// A run of two drives, of which the second one failed.
struct SampleRun {
  SampleRun() {
    settings.test.driveAddresses = {"sim:1g", "file:b.img"};
    settings.test.seed = 42;
    settings.test.commandLimit = 100;
    settings.test.outputDirectory = "out";
    settings.jsonPath = "out/result.json";
    settings.startedUs = 1'769'860'800'000'000;
    drives.resize(2);
    drives[0].name = "sim0";
    drives[0].address = "sim:1g";
    drives[0].description = "simulated";
    drives[1].name = "b.img";
    drives[1].address = "file:b.img";
    drives[0].geometry = {.blocks = 1000, .blockSize = 4096, .protectionBytes = 8, .physicalExponent = 1};
    drives[0].firstLba = 5;
    drives[0].endLba = 900;
    drives[1].geometry = {.blocks = 2000};
    drives[1].endLba = 2000;

    DriveResult good;
    good.name = "sim0";
    good.address = "sim:1g";
    good.description = "simulated";
    good.totals.issued = {60, 0, 0, 3, 37, 0, 0};
    good.totals.completed = {60, 0, 0, 3, 36, 0, 0};
    good.totals.bytesWritten = 4'000'000;
    good.totals.bytesCompared = 3'000'000;
    good.totals.blocksCompared = 700;
    good.totals.checked.oneOutcome = 1690;
    good.totals.checked.severalOutcomes[2] = 20;
    good.totals.checked.severalOutcomes[4] = 5;
    good.totals.checked.notCheckable[static_cast<size_t>(Uncheckable::zoneReset)] = 7;
    good.totals.checked.notCheckable[static_cast<size_t>(Uncheckable::probe)] = 2;
    good.totals.blocksTrimmed = 24;
    good.totals.resets = 2;
    good.totals.zoneResets = 5;
    good.totals.invalidations = 6;
    good.elapsedMs = 2000;
    DriveResult bad;
    bad.name = "b.img";
    bad.address = "file:b.img";
    bad.status = RunStatus::dataFailure;
    bad.agentStatus = -1046;
    bad.error = "Miscompare Detected at LBA 0x1";
    bad.totals.blocksCompared = 1;
    bad.messages.errors = 1;
    bad.messages.lines = {{.level = 2, .text = "Miscompare Detected at LBA 0x1"}};
    bad.messages.reports = {"out/trace.txt"};
    bad.messages.dumps = {"out/drive.bin", "out/reference.bin"};
    result.status = RunStatus::dataFailure;
    result.drives = {good, bad};
    result.findings = {{.driveIndex = 1,
                        .drive = "b.img",
                        .agentStatus = -1046,
                        .text = bad.error,
                        .files = {"out/trace.txt", "out/drive.bin", "out/reference.bin"},
                        .moment = {.commandNumber = 1042, .step = 1100, .elapsedMs = 70}}};
    result.seed = 42;
    result.elapsedMs = 2100;
  }

  RunSettings settings;
  std::vector<DriveIntroduction> drives;
  RunResult result;
};

}  // namespace corvane::host::testing
