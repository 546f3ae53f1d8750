// Writes user data, finds it again, and has the diagnostics library silent.
#include <h264.h>

#include <array>
#include <iostream>
#include <string>

int main() {
    DbgTraceSetLevel(0);
    const std::array<unsigned char, 16> uuid{1, 2, 3};
    const std::string text = "text";
    std::array<unsigned char, 64> unit{};
    const int length = format_sei_user_data_unregistered_nal(unit.data(), static_cast<int>(unit.size()), uuid.data(),
                                                             reinterpret_cast<const unsigned char*>(text.data()),
                                                             static_cast<unsigned int>(text.size()));
    int offset = 0;
    int start = 0;
    int kind = 0;
    SEI_message_t message{};
    BOOL more = FALSE;
    if (!DetermineSEIType(unit.data(), length, &offset, &start, &message, &kind, &more)) return 1;
    std::cout << "C++: payload_type " << int{message.payload_type} << ", " << message.payload_size << " bytes\n";
}
