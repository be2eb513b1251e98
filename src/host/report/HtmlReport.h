/// @file HtmlReport.h
///
/// The report of a run: one page that needs nothing else.
#ifndef HTMLREPORT_H
#define HTMLREPORT_H

#include "draw/PadStore.h"
#include "job/RunResult.h"

#include <string>
#include <vector>

namespace host {

/// The facts of a run and a picture of every pad as an HTML page (docs/report.md says what is
/// where).
///
/// Everything is in the page, pictures too, and its content security policy forbids to load
/// anything. Texts of files, modules and the job are shown, never interpreted. For a pad that
/// cannot be drawn the page gives the reason.
std::string htmlReport(const RunResult& result, const std::vector<Pad>& pads);

} // namespace host

#endif
