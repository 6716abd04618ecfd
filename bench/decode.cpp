// How much the strict status decoder costs on top of parsing the JSON at all.
// Builds a ~1 MB status body (many project rows, provider readings and timers), then times
// QJsonDocument::fromJson alone (the baseline) and the full decode into DaemonStatus.

#include "daemon_link/records.h"
#include "json/json_codec.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace quonbrix;

namespace {

QByteArray makeBody(qsizetype targetBytes) {
    DaemonStatus s;
    s.enrolled = true;
    s.orgId = QStringLiteral("org_bench");
    s.period = QStringLiteral("2026-11-23");
    s.tokens = 123456789;
    s.estCost = 1234.5;
    s.consent.master = {true, QStringLiteral("daily")};
    s.projects.emplace();
    s.providerLimits.emplace();
    s.workTimers.emplace();
    const QStringList models{QStringLiteral("model-a"), QStringLiteral("model-b")};
    for (int i = 0; json::encodeBytes(s).size() < targetBytes; ++i) {
        for (int k = 0; k < 50; ++k, ++i) {
            StatusProjectRow row;
            row.key = {{QStringLiteral("repo"), QStringLiteral("acme/project-%1").arg(i)},
                       {QStringLiteral("branch"), QStringLiteral("main")}};
            row.tokens = 1000000 + i;
            row.work = 200000 + i;
            row.cache = 700000 + i;
            row.estCost = 12.5 + i;
            row.pricedSubtotal = 11.0 + i;
            row.unpricedTokens = i;
            row.unpricedModels = models;
            row.lastSeen = QStringLiteral("2026-11-23T08:59:12.250Z");
            s.projects->push_back(row);
            s.consent.projects.insert(row.key.value(QStringLiteral("repo")), {i % 2 == 0});
            if (k % 5 == 0) {
                ProviderLimitSnapshot p;
                p.source = QStringLiteral("claude-code");
                p.window = QStringLiteral("week_scoped");
                p.usedPercent = 12.5 + k;
                p.resetsAtMs = 1795600800000.0 + i;
                p.capturedAtMs = 1795425000000.0;
                p.scopeLabel = QStringLiteral("Model %1").arg(i);
                p.stale = false;
                s.providerLimits->push_back(p);
            }
            if (k % 25 == 0) {
                WorkSession w;
                w.schemaVersion = QStringLiteral("1");
                w.id = QStringLiteral("ws_%1").arg(i);
                w.projectLabel = QStringLiteral("Project %1").arg(i);
                w.status = QStringLiteral("running");
                w.segments = {{QStringLiteral("seg_1"), QStringLiteral("2026-11-23T08:00:00Z"),
                               QStringLiteral("2026-11-23T08:30:00Z"),
                               QStringLiteral("Europe/Berlin")}};
                w.createdAt = w.updatedAt = QStringLiteral("2026-11-23T08:00:00Z");
                s.workTimers->push_back(w);
            }
        }
    }
    return json::encodeBytes(s);
}

template <class F> double elapsedMs(F &&f) {
    QElapsedTimer t;
    t.start();
    f();
    return double(t.nsecsElapsed()) / 1e6;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char *argv[]) {
    QCoreApplication app(argc, argv);
    const QByteArray body = makeBody(1 << 20);
    const int rounds = 41;
    volatile qsizetype sink = 0;

    if (!json::decode<DaemonStatus>(body)) {
        std::fprintf(stderr, "bench_decode: generated body does not decode\n");
        return 1;
    }
    // Each round times the baseline and the decoder back to back and keeps their ratio, so a
    // machine whose speed drifts (frequency scaling, a busy neighbour) slows both alike.
    std::vector<double> parses, decodes, ratios;
    for (int r = 0; r < rounds; ++r) {
        const double p =
            elapsedMs([&] { sink = sink + QJsonDocument::fromJson(body).object().size(); });
        const double d = elapsedMs(
            [&] { sink = sink + qsizetype(json::decode<DaemonStatus>(body)->projects->size()); });
        parses.push_back(p);
        decodes.push_back(d);
        ratios.push_back(d / p);
    }
    const double parse = median(parses);
    const double decode = median(decodes);
    const double ratio = median(ratios);
    std::printf("decode: body %.2f MB; QJsonDocument::fromJson %.2f ms; decode to DaemonStatus "
                "%.2f ms; median ratio %.2fx (target <= 2.00x)\n",
                double(body.size()) / (1024.0 * 1024.0), parse, decode, ratio);
    // A row of the table scripts/bench ends with.
    std::printf("row: status decode vs JSON parse|%.2fx|<= 2.00x|%s\n", ratio,
                ratio <= 2.0 ? "met" : "MISSED");
    return ratio <= 2.0 ? 0 : 1;
}
