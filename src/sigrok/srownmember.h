#ifndef VORN_SROWNMEMBER_H
#define VORN_SROWNMEMBER_H

#include <string>

namespace vornsr {

extern const char *const LIMITS_MEMBER; // "vorngraph/limits"

// The text of one of our own small members; empty when the capture has none.
bool readOwnMember(const std::string &path, const std::string &member, std::string &text, std::string &error);

// Stores text as the member, or removes it when text is null, the way curves are saved: under
// the capture's lock, every other member byte-identical, the new file read back before it is
// renamed over the old one. Nothing is written when nothing would change.
bool replaceOwnMember(const std::string &path, const std::string &member, const std::string *text,
                      std::string &error);

} // namespace vornsr

#endif
