#include "bridge/UrlCommands.h"

#include "templates/StrictJson.h"
#include "templates/TemplateStore.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonParseError>

namespace brindlemark {

std::optional<Template> templateFromBase64Payload(const QString& payload) {
    if (payload.isEmpty())
        return std::nullopt;
    const std::optional<QByteArray> bytes = strictBase64Decode(payload);
    if (!bytes || bytes->isEmpty() ||
        !isStrictJson({bytes->constData(), std::size_t(bytes->size())}))
        return std::nullopt;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(*bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return normalizedTemplate(document.object());
}

Template templateFromQueryItems(const QList<QueryItem>& items, const TemplateList& templates) {
    // Later non-empty values replace earlier ones; empty or absent values never erase.
    QHash<QString, QString> map;
    for (const QueryItem& item : items)
        if (item.value && !item.value->isEmpty())
            map.insert(item.name, *item.value);

    if (const std::optional<Template> payload = templateFromBase64Payload(map.value("payload"));
        payload && !payload->isEmpty())
        return *payload;

    const QString identifier = map.contains("id") ? map.value("id") : FallbackTemplateIdentifier;
    const Template base = templateWithIdentifier(templates, identifier);
    const bool explicitFields =
        map.contains("prefix") || map.contains("suffix") || map.contains("title");
    if (!explicitFields)
        return base;

    auto field = [&](const QString& key, const QString& fallback) -> QJsonValue {
        if (map.contains(key))
            return map.value(key);
        const QJsonValue fromBase = base.value(key);
        return fromBase.isUndefined() ? QJsonValue(fallback) : fromBase;
    };
    const bool baseExecutable = boolFromValue(base.value(TemplateKey::executable), false);
    const QJsonValue executable = map.contains("executable") ? QJsonValue(map.value("executable"))
                                                             : QJsonValue(QJsonValue::Undefined);
    return Template{
        {TemplateKey::id, field(TemplateKey::id, FallbackTemplateIdentifier)},
        {TemplateKey::enabled, true},
        {TemplateKey::title, field(TemplateKey::title, FallbackTitle)},
        {TemplateKey::prefix, field(TemplateKey::prefix, FallbackTitle)},
        {TemplateKey::suffix, field(TemplateKey::suffix, QString(""))},
        {TemplateKey::executable, boolFromValue(executable, baseExecutable)},
    };
}

UrlRequest interpretCommandUrl(const QString& text, const TemplateList& templates) {
    UrlRequest request;
    const std::optional<CommandUrl> url = parseCommandUrl(text);
    if (!url || url->scheme != CommandUrlScheme)
        return request;

    std::optional<QString> path;
    for (const QueryItem& item : url->queryItems) {
        if (item.name == QLatin1String("path")) {
            path = item.value;
            break;
        }
    }
    if (!path || path->isEmpty()) {
        request.kind = UrlRequest::MissingFolder;
        return request;
    }
    request.folder = *path;

    if (url->host == QLatin1String("create")) {
        request.kind = UrlRequest::Create;
    } else if (url->host == QLatin1String("template")) {
        request.kind = UrlRequest::CreateFromTemplate;
        request.record = templateFromQueryItems(url->queryItems, templates);
    } else if (url->host == QLatin1String("terminal")) {
        request.kind = UrlRequest::OpenTerminal;
    } else if (url->host == QLatin1String("iterm")) {
        request.kind = UrlRequest::OpenITerm;
    }
    return request;
}

} // namespace brindlemark
