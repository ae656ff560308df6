#pragma once

#include <linux/nvme_ioctl.h>

#include <cstdint>

#include "host/drive/nvme/NvmeCommand.h"

namespace corvane::host {

/// A command as the kernel's driver takes it; its forms for ioctl and for io_uring have the same fields.
template <typename Form>
Form nvmeKernelForm(const NvmeCommand& command) {
  Form form{};
  form.opcode = command.opcode;
  form.nsid = command.nsid;
  form.addr = reinterpret_cast<uintptr_t>(command.data);
  form.data_len = command.dataBytes;
  form.metadata = reinterpret_cast<uintptr_t>(command.metadata);
  form.metadata_len = command.metadataBytes;
  form.cdw10 = command.dwords[0];
  form.cdw11 = command.dwords[1];
  form.cdw12 = command.dwords[2];
  form.cdw13 = command.dwords[3];
  form.cdw14 = command.dwords[4];
  form.cdw15 = command.dwords[5];
  return form;
}

}  // namespace corvane::host
