// Writes report.html for a folder of take files: the page test's way to the report writer.
#include <iostream>

#include "converter/report/report_html.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: knrconvert_report_write DIR\n";
    return 2;
  }
  std::string error;
  if (!knrconvert::WriteRunReport(argv[1], error)) {
    std::cerr << error << "\n";
    return 1;
  }
  return 0;
}
