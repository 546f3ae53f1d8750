// A file that is there whole or not at all.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace h264tool {

class OutputFile {
public:
    // Writes to a temporary file in the directory of path. "-" is standard output, which has no such guarantee, and
    // neither has what is there already and no regular file, such as a named pipe or a device.
    // Throws std::system_error, as all of this does.
    explicit OutputFile(const std::string& path);
    // Removes the temporary file unless commit() was called; so do signals that end the program.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Name for messages.
    const std::string& name() const { return name_; }

    void write(std::span<const unsigned char> bytes);
    // Everything is written: what can fail because of the bytes has failed after this. No write() follows.
    void finish();
    // Does that, and then the file takes its name, replacing one that has it. A file that is replaced passes its
    // permissions on.
    void commit();

private:
    void open_in_place();
    void create_temporary(unsigned permissions);
    void remove_temporary();
    void flush();
    [[noreturn]] void fail(const char* what) const;

    std::string name_;
    std::string path_;            // the file to be replaced, symbolic links resolved
    std::string temporary_path_;  // empty: nothing to rename or remove
    int descriptor_ = -1;
    std::size_t slot_ = 0;  // where signal handlers find the temporary file
    std::vector<unsigned char> buffer_;
};

// Whether two outputs end up in one file, under whatever names. Devices and pipes are one only under one name.
bool is_same_output(const std::string& a, const std::string& b);
// Whether an output replaces a regular file that is the input; "-" is standard input and standard output.
bool is_same_file(const std::string& input, const std::string& output);

}  // namespace h264tool
