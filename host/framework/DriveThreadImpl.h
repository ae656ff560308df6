#pragma once

#include "host/framework/SharedVariables.h"
#include "vdl/DriveThread.h"

/// What the operations of a drive thread work on.
struct vdl::DriveThread::Impl {
  corvane::host::SharedVariables* variables = nullptr;
  void* driveData = nullptr;
};
