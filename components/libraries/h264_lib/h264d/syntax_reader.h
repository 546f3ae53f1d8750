// Reads syntax elements one line each, so that a parser can be held beside the syntax table it implements.
#pragma once

#include "h264d/h264d.h"

// A payload of which only the beginning has been brought into a bit buffer's area.
class PartialPayload {
public:
    // Brings more of it into the area. False when there is no more.
    virtual bool extend(bitbuffer_t& bits) = 0;

protected:
    ~PartialPayload() = default;
};

// How a failure names an element.
struct Element {
    enum Form { kPlain, kIndexed, kNumbered, kSized };

    Element(const char* element) : name(element) {}  // "frame_num."
    Element(const char* element, Form element_form, unsigned long element_number)
        : name(element), form(element_form), number(h264::low32s(element_number)) {}

    const char* name;
    Form form = kPlain;
    int number = 0;
};

// "cbr_flag[2]."
inline Element indexed(const char* element, unsigned long i) { return {element, Element::kIndexed, i}; }
// "ct_type[i]:2."
inline Element numbered(const char* element, unsigned long i) { return {element, Element::kNumbered, i}; }
// "frame_num with bitlength:33."
inline Element sized(const char* element, unsigned long bits) { return {element, Element::kSized, bits}; }

// A reader for one function. An element that cannot be read keeps the value it had; the failure is reported at level 3
// as that function's, with the line of the call.
class SyntaxReader {
public:
    // function: the name messages are reported under; failure: what they begin with; rest: where to get more of the
    // payload when the area ends, null when the area holds all of it.
    SyntaxReader(bitbuffer_t* bits, const char* function, const char* failure = "cannot parse",
                 PartialPayload* rest = nullptr)
        : bits_(bits), function_(function), failure_(failure), rest_(rest) {}

    // Position in bits.
    int position() const { return static_cast<int>(bits_->bit_offset); }

    // u(1)
    [[nodiscard]] bool flag(int& value, Element element, int line = __builtin_LINE()) {
        return read([&] { return GetNextBitEx(bits_, &value); }) || fail(element, line);
    }
    // u(n), n up to 8
    [[nodiscard]] bool u(unsigned int n, unsigned char& value, Element element, int line = __builtin_LINE()) {
        return read([&] { return GetNextNBitsAsUint8(bits_, n, &value); }) || fail(element, line);
    }
    // u(n), n up to 16
    [[nodiscard]] bool u(unsigned int n, unsigned short& value, Element element, int line = __builtin_LINE()) {
        return read([&] { return GetNextNBitsAsUint16(bits_, n, &value); }) || fail(element, line);
    }
    // u(n); an n above 32, which a parameter set may give, fails without a read.
    [[nodiscard]] bool u(unsigned int n, unsigned long& value, Element element, int line = __builtin_LINE()) {
        return (n <= 32 && read([&] { return GetNextNBitsAsUint32(bits_, n, &value); })) || fail(element, line);
    }
    // i(n); an n above 32 fails without a read, and so does 1.
    [[nodiscard]] bool i(unsigned int n, signed long& value, Element element, int line = __builtin_LINE()) {
        return (n <= 32 && read([&] { return GetNextNBitsAsInt32(bits_, n, &value); })) || fail(element, line);
    }
    // ue(v)
    [[nodiscard]] bool ue(unsigned long& value, Element element, int line = __builtin_LINE()) {
        return read([&] { return GetUint32Golomb(bits_, &value); }) || fail(element, line);
    }
    // ue(v) whose failure is not reported
    [[nodiscard]] bool ue(unsigned long& value) {
        return read([&] { return GetUint32Golomb(bits_, &value); });
    }
    // se(v)
    [[nodiscard]] bool se(signed long& value, Element element, int line = __builtin_LINE()) {
        return read([&] { return GetInt32Golomb(bits_, &value); }) || fail(element, line);
    }

private:
    // An element is read again from its first bit when the area ended inside it and could be extended.
    template <typename ReadElement>
    bool read(ReadElement read_element) {
        const unsigned int start = bits_->bit_offset;
        while (read_element() != 0) {
            if (rest_ == nullptr || !rest_->extend(*bits_)) return false;
            bits_->bit_offset = start;
        }
        return true;
    }

    // Reports a failure and returns false.
    bool fail(const Element& element, int line) const;

    bitbuffer_t* bits_;
    const char* function_;
    const char* failure_;
    PartialPayload* rest_;
};

// Entry i of an array, or the given place for an entry that does not fit: a stream may transmit more than a record
// holds, and what does not fit is read and dropped.
template <typename T, std::size_t Size>
T& entry_or(T (&array)[Size], unsigned long i, T& dropped) {
    return i < Size ? array[i] : dropped;
}
