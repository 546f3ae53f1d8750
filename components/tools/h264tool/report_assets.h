// The files that the page of h264tool report is made of; the build puts them in.
#pragma once

#include <string_view>

namespace h264tool {

extern const std::string_view kReportHtml;
extern const std::string_view kReportCss;
extern const std::string_view kReportScript;
extern const std::string_view kChartCss;
extern const std::string_view kChartScript;
extern const std::string_view kChartLicence;

}  // namespace h264tool
