#ifndef QUILCAT_MMAPLOG_SEGMENT_COPY_H_
#define QUILCAT_MMAPLOG_SEGMENT_COPY_H_

#include <stddef.h>
#include <stdint.h>

// Stores to a mapped segment of a file, kSegmentSize bytes long, in which `position` and the `size` bytes after it
// lie.
//
// The file may be cut from outside, or its disk fail under a page that is not in memory: the store then raises SIGBUS.
// False: that happened. Anonymous memory has replaced the whole segment, which the caller unmaps as before; what
// of the bytes reached the file is unknown.
//
// The first call installs a handler of SIGBUS for the process. It acts on nothing but the stores that its own thread
// makes here; for any other SIGBUS it puts back what was installed before, and the process ends as it would have.
// Any thread may call, one at a time for a segment.

/// Has the kernel make the pages of `size` zero bytes writable, which may take it until the disk has done something
/// else. A copy that follows is done in a moment: a kill has hardly a chance to find it half done.
bool openPages(uint8_t* segment, size_t position, size_t size);

/// Copies `size` bytes.
bool copyToSegment(uint8_t* segment, size_t position, const uint8_t* bytes, size_t size);

#endif  // QUILCAT_MMAPLOG_SEGMENT_COPY_H_
