#ifndef KVR_API_EXPORT_H
#define KVR_API_EXPORT_H

/// Marks what libtavo offers to its users; everything else in the library stays hidden.
#define TAVO_API __attribute__((visibility("default")))

#endif
