#include "DriveData.h"

#include <algorithm>
#include <new>

#include "AlignedMemory.h"
#include "Conditions.h"
#include "Step.h"
#include "vdl/Status.h"

namespace vdl {

namespace {

// Access modes, as the framework declares them.
constexpr uint32_t consumes = 1;
constexpr uint32_t produces = 2;
constexpr uint32_t rewrites = 3;
constexpr uint32_t optional = 5;

/// Maps every shared variable. A failed map does not end the series; the last failure stays in the error cell.
int mapVariables(DriveThread& drive, Corvane::DriveData& data) {
  int err = 0;
  data.lba = drive.mapU64("LBA", rewrites, &err, 0);
  data.xferLength = drive.mapU32("XferLength", rewrites, &err, 0);
  data.atomicBound = drive.mapU32("AtomicBound", rewrites, &err, 0);
  data.testMaxXferLength = drive.mapU32("TestMaxXferLength", consumes, &err, 0);
  data.maxLBA = drive.mapU64("MaxLBA", consumes, &err, 0);
  data.minLBA = drive.mapU64("MinLBA", consumes, &err, 0);
  data.epo = drive.mapU32("EPO", optional, &err, 0);
  data.lastTagID = drive.mapU32("LastTagID", consumes, &err, 0);
  data.readDataIsValid = drive.mapU32("ReadDataIsValid", consumes, &err, 0);
  data.deviceInterface = drive.mapU32("DeviceInterface", consumes, &err, 0);
  data.lastStatusByte = drive.mapU32("LastStatusByte", consumes, &err, 0);
  data.readDataPtr = drive.mapTaggedBuffer("ReadDataPtr[TagID]", optional, &err);
  data.cdb = drive.mapTaggedBuffer("CDB[TagID]", consumes, &err);
  data.recvCDB = drive.mapTaggedBuffer("RecvCDB[TagID]", consumes, &err);
  data.writeData = drive.mapBuffer("WriteData", produces, &err);
  data.lastErrSenseData = drive.mapBuffer("LastErrSenseData", consumes, &err);
  data.parameterList = drive.mapTaggedBuffer("ParameterList[TagID]", optional, &err);
  data.bucketIndex = drive.mapU32("BucketIndex", produces, &err, 0);
  data.skipGen = drive.mapU32("SkipGen", produces, &err, 0);
  data.deviceReset = drive.mapBool("DeviceReset", rewrites, &err, false);
  data.writeLBA = drive.mapU64("WriteLBA", optional, &err, 0);
  data.writeXferLength = drive.mapU32("WriteXferLength", optional, &err, 0);
  data.writeCmdUsed = drive.mapU32("WriteCmdUsed", produces, &err, 0);
  data.zoneResetQueue = drive.mapLBARangeQueue("CSZoneReset", optional, &err);
  data.hostManaged = drive.mapU32("HostManaged", optional, &err, 0);
  data.invalidateQueue = drive.mapLBARangeQueue("CVNInvalidateRanges", optional, &err);
  return err;
}

}  // namespace

int Corvane::initDriveData(DriveThread* drive) noexcept {
  auto* data = new (std::nothrow) DriveData;
  if (data == nullptr) {
    return status::outOfMemory;
  }
  int result = mapVariables(*drive, *data);
  if (result == status::ok) {
    result = drive->registerDriveData(data);
  }
  if (result != status::ok) {
    delete data;
  }
  return result;
}

void Corvane::freeDriveData(void* driveData) noexcept {
  auto* data = static_cast<DriveData*>(driveData);
  delete data->trace;
  delete[] data->buckets;
  delete[] data->embedBuffer;
  delete[] data->zeroBlock;
  delete data->referenceCompareData;
  delete data->driveCompareData;
  for (uint8_t* buffer : data->tagBuffers) {
    deletePageAligned(buffer);
  }
  delete data;
}

int agent::firstExecuteInit(DriveThread* drive, Corvane::DriveData* data, const Corvane::ConfigData* config) {
  const uint64_t unit = sectorBytes(*drive) + (configured(config->e2eCondition) ? e2eBytes : 0);
  const uint64_t bytes = std::max<uint64_t>(unit * *data->testMaxXferLength, unit);
  // "WriteData" may still show a buffer of an earlier test.
  if (!data->tagBuffers.empty() && data->writeData != nullptr && !data->writeData->owned) {
    data->writeData->release();
  }
  for (uint8_t* buffer : data->tagBuffers) {
    deletePageAligned(buffer);
  }
  data->tagBuffers.assign(drive->queueDepth, nullptr);
  data->tagBufferBytes.assign(drive->queueDepth, 0);
  bool complete = true;
  for (uint32_t tag = 0; tag < drive->queueDepth; ++tag) {
    // Zeroed: the end-to-end bytes behind each sector are the command's, not left-over memory.
    data->tagBuffers[tag] = newPageAligned(bytes);
    if (data->tagBuffers[tag] == nullptr) {
      complete = false;
    } else {
      data->tagBufferBytes[tag] = bytes;
    }
  }
  if (!complete) {
    drive->eventLog->logf(2, "Corvane: Failed memory allocation of local write buffers");
    return status::outOfMemory;
  }
  return status::ok;
}

}  // namespace vdl
