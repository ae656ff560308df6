#pragma once

#include <cstdint>

namespace vdl {

/// Reads SCSI sense data (SPC, "Sense data"): fixed format (response codes 70h and 71h) and descriptor format
/// (72h and 73h).
///
/// Every operation takes the first byte of at least 8 bytes of sense data and returns 0, or a negative status when
/// the format is not known; its output is then left alone. Bytes beyond the first 8 are read only as far as the
/// additional sense length says that they exist.
struct SenseParser {
  /// Sense key, additional sense code and its qualifier.
  struct Kcq {
    uint8_t key = 0;
    uint8_t code = 0;
    uint8_t qual = 0;
  };

  /// The vendor's unit error code: big-endian in bytes 20 and 21 of the fixed format, and in the first two bytes of
  /// a vendor-specific descriptor (type 80h); 0 when there is none.
  using Uec = uint16_t;

  static int getKey(const uint8_t* sense, Kcq& out);   ///< fills `out.key`
  static int getCode(const uint8_t* sense, Kcq& out);  ///< fills `out.code` (ASC)
  static int getQual(const uint8_t* sense, Kcq& out);  ///< fills `out.qual` (ASCQ)
  static int getUec(const uint8_t* sense, Uec& out);   ///< fills the unit error code

  /// Whether the information field is valid: 1 or 0.
  static int getValidBit(const uint8_t* sense, uint8_t* valid);

  /// The information field, big-endian, 8 bytes; the fixed format's 4 bytes are right-justified.
  static int getInformationBytes(const uint8_t* sense, uint8_t* eightBytes);
};

}  // namespace vdl
