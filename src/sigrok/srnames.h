#ifndef VORN_SRNAMES_H
#define VORN_SRNAMES_H

#include "srarchive.h"

#include <string>
#include <vector>

namespace vornsr {

// The name every channel is offered under, in channel order. Each fits the info record (127
// bytes, cut on a UTF-8 boundary) and differs from all others (" (2)", " (3)", ... before the
// cut point). A data channel leaves room for " [upper]"/" [lower]", so that the curves saved
// under its offered name come back under that name plus the suffix and still pair with it.
// Only our curves are offered with a name ending in " [upper]" or " [lower]": a device channel
// named so gets " (channel)" behind it and keeps its data, since it must never act as a limit.
std::vector<std::string> offeredNames(const std::vector<Channel> &channels);

} // namespace vornsr

#endif
