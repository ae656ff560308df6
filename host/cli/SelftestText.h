#pragma once

#include <string>

#include "host/selftest/Campaign.h"

namespace corvane::host {

/// The heading of the table of classes, and its row of one class; in Markdown, so that it can go into a document.
std::string classTableHeading();
std::string classTableRow(const ClassResult& result);

/// The same for the clean runs.
std::string cleanTableHeading();
std::string cleanTableRow(const CleanResult& result);

/// What the explanations made of the findings of each class, in Markdown: how many of them name the class that was
/// injected, and which kind of wrong block they state.
std::string explanationTable(const CampaignResult& result);

/// The table of explanations, everything that must not have been, the reasons behind misses and masks, and the verdict
/// on the whole.
std::string campaignSummary(const CampaignResult& result);

/// The whole result for programs. Holds nothing that depends on time or machine.
std::string campaignJson(const CampaignResult& result);

}  // namespace corvane::host
