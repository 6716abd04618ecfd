#pragma once

// The "Today" figures in words: what the popover's Today panel shows, and what the command
// line prints beside it, so the two never disagree on a figure or its caption.

#include "daemon_link/records.h"

#include <vector>

namespace quonbrix {

struct TodayFigure {
    QString value;   // "402.0K", "$86.20", "—"
    QString caption; // "output tokens", "priced API subtotal", …
    QString help;    // empty for none
};

// Output tokens, then the cost (the API equivalent only when every token had a price, else
// the priced subtotal or an em dash), then coding time when the daemon measured attention.
std::vector<TodayFigure> todayFigures(const DaemonStatus &status);
// "402.0K output tokens": the figure as one phrase.
QString todayFigureText(const TodayFigure &figure);

struct SourceShare {
    QString name;
    double fraction = 0; // of today's output tokens, 0 when there are none
    QString percent;
};
// Claude and Codex, always both, in that order.
std::vector<SourceShare> todaySourceShares(const DaemonStatus &status);
// "Claude 79% · Codex 21%".
QString sourceSharesText(const std::vector<SourceShare> &shares);

} // namespace quonbrix
