#pragma once

class AtomicFile;
class KXAbstractData;
class KXMutableData;

/// Appends all that `data` reads to `file`; false when it can be read no longer or not be written.
bool appendData(KXAbstractData& data, AtomicFile& file);

/// Appends the edited file in `data`, which was made from that of `descriptor`: what did not change
/// is copied by the kernel. False when it can be read no longer or not be written, as
/// `writeRangeOf`.
bool appendEdited(KXMutableData const& data, int descriptor, AtomicFile& file);
