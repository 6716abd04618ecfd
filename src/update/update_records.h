#pragma once

#include <QString>
#include <optional>

namespace quonbrix {

// The newest version a feed offers, as the update helper reports it to the app.
struct UpdateOffer {
    QString version;        // compared with ours, component by component
    QString displayVersion; // what people see ("1.4"), the version when the feed gives none
    QString title;
    QString notesUrl;
    QString url;
    qint64 length = 0;
    QString signature; // base64 Ed25519 signature of the whole download

    bool operator==(const UpdateOffer &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("version", s.version);
        v("displayVersion", s.displayVersion);
        v("title", s.title);
        v("notesUrl", s.notesUrl);
        v("url", s.url);
        v("length", s.length);
        v("signature", s.signature);
    }
};

// One line the update helper prints: the offer found, download progress, the end of an
// install, or what went wrong.
struct UpdateEvent {
    std::optional<UpdateOffer> newest;
    std::optional<qint64> received;
    std::optional<qint64> total;
    std::optional<bool> installed;
    std::optional<QString> error;

    bool operator==(const UpdateEvent &) const = default;
    template <class Self, class V> static void fields(Self &s, V &&v) {
        v("newest", s.newest);
        v("received", s.received);
        v("total", s.total);
        v("installed", s.installed);
        v("error", s.error);
    }
};

} // namespace quonbrix
