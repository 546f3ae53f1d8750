#include "h264d/syntax_reader.h"

bool SyntaxReader::fail(const Element& element, int line) const {
    if (!h264::is_emitted(3)) return false;
    const auto print = [&](const char* format, auto... number) {
        _DoDbgPrintEx(g_hH264LibDbg, 3, function_, kModuleFile, line, format, failure_, element.name, number...);
    };
    switch (element.form) {
        case Element::kPlain:
            print("%s %s.\n");
            break;
        case Element::kIndexed:
            print("%s %s[%d].\n", element.number);
            break;
        case Element::kNumbered:
            print("%s %s[i]:%d.\n", element.number);
            break;
        case Element::kSized:
            print("%s %s with bitlength:%d.\n", element.number);
            break;
    }
    return false;
}
