#include "report_page.h"

#include <array>
#include <string_view>
#include <utility>

#include "report_assets.h"

namespace h264tool {
namespace {

void write(OutputFile& output, std::string_view text) {
    output.write({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
    std::string result;
    for (std::size_t at = 0;;) {
        const std::size_t found = text.find(from, at);
        result += text.substr(at, found - at);
        if (found == std::string_view::npos) return result;
        result += to;
        at = found + from.size();
    }
}

std::string html_text(const std::string& text) { return replaced(replaced(text, "&", "&amp;"), "<", "&lt;"); }

}  // namespace

void write_page(OutputFile& output, const std::string& title, const std::string& data) {
    // In JSON this character stands in strings alone. It must not end the element that holds the data.
    const std::string safe_data = replaced(data, "<", "\\u003c");
    const std::string safe_title = html_text(title);
    const std::array<std::pair<std::string_view, std::string_view>, 7> parts{{{"{{title}}", safe_title},
                                                                              {"{{chart licence}}", kChartLicence},
                                                                              {"{{chart style}}", kChartCss},
                                                                              {"{{style}}", kReportCss},
                                                                              {"{{data}}", safe_data},
                                                                              {"{{chart script}}", kChartScript},
                                                                              {"{{script}}", kReportScript}}};
    // The places are in this order in the page.
    std::string_view html = kReportHtml;
    for (const auto& [place, part] : parts) {
        const std::size_t at = html.find(place);
        write(output, html.substr(0, at));
        write(output, part);
        html.remove_prefix(at + place.size());
    }
    write(output, html);
}

}  // namespace h264tool
