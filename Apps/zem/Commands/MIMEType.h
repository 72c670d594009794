#pragma once

// The MIME types of files.

#include <string>

namespace zem::host {

/// The usual type for the extension of a file's name, in either case; "application/octet-stream" if
/// the name has none that is known.
std::string guessMIMEType(const std::string& fileName);

/// Whether the text has the form of a MIME type, such as "image/png", parameters included.
bool isMIMEType(const std::string& text);

} // namespace zem::host
