// Reading a whole file into memory, for the small files the engines and the
// application read as one piece (property lists, map files, the log file).

#ifndef VELMAR_BASE_FILE_BYTES_H_
#define VELMAR_BASE_FILE_BYTES_H_

#include <string>

namespace velmar {

// Replaces *bytes with the file's contents. Answers 0, or the errno of the
// failure (*bytes then holds what was read before it).
int readFileBytes(const std::string& path, std::string* bytes);

}  // namespace velmar

#endif  // VELMAR_BASE_FILE_BYTES_H_
