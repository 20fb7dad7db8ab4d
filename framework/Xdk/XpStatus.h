#pragma once

/// What every SDK operation returns: `XP_NO_ERR`, or the reason why the chip did not do it.
using XP_STATUS = int;

/// The return codes. The numbers are part of the interface: callers that outlive one release of the
/// SDK compare numbers.
enum XP_STATUS_CODE : XP_STATUS {
  XP_NO_ERR = 0,
  /// The operation does not exist on this chip.
  XP_ERR_NOT_SUPPORTED = 1,
  /// No chip carries this device number.
  XP_ERR_INVALID_DEVICE = 2,
  /// The table, tile or row to be written does not exist.
  XP_ERR_OUT_OF_RANGE = 3,
  /// A field of the record has more bits than the hardware keeps for it. Nothing was written.
  XP_ERR_FIELD_TOO_WIDE = 4,
  /// A null pointer where a record was expected.
  XP_ERR_NULL_POINTER = 5,
  /// The access went through after the bus was busy.
  XP_ERR_BUS_RETRIED = 9,
  /// There is nothing to read at this row.
  XP_ERR_NOTHING_TO_READ = 11,
  /// The access went through after the chip corrected a memory error.
  XP_ERR_MEMORY_CORRECTED = 42,
};
