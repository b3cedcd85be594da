#include "host/core/PropertiesXml.h"

#include "host/core/File.h"
#include "host/core/Log.h"

#include <QString>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace Kestrion {

namespace {

const char* const category = "Properties";
const char* const blockElement = "properties";
const char* const paramElement = "param";
// Deeper nesting than any real tree; stops a hostile file from exhausting the stack.
const int maxDepth = 256;

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

std::string text(const QStringRef& ref) {
    return ref.toString().toStdString();
}

// ---- reading ----

class Reader {
public:
    explicit Reader(const std::string& xml)
        : m_xml(QByteArray::fromStdString(xml)) {}

    bool read(Properties& root) {
        if (!m_xml.readNextStartElement()) {
            if (!m_xml.hasError())
                m_xml.raiseError(QStringLiteral("the document holds no <properties> element"));
            return false;
        }
        if (m_xml.qualifiedName() != QLatin1String(blockElement)) {
            m_xml.raiseError(QStringLiteral("expected <properties> as the document element, found <%1>")
                                 .arg(m_xml.qualifiedName().toString()));
            return false;
        }
        if (!readBlock(root, 0))
            return false;
        // Anything after the document element but comments and white space is an error.
        while (!m_xml.atEnd())
            m_xml.readNext();
        return !m_xml.hasError();
    }

    QXmlStreamReader& xml() { return m_xml; }

private:
    // At the start element of a block; returns at its end element.
    bool readBlock(Properties& block, int depth) {
        if (depth > maxDepth) {
            m_xml.raiseError(QStringLiteral("properties nested deeper than %1 levels").arg(maxDepth));
            return false;
        }
        for (const QXmlStreamAttribute& attribute : m_xml.attributes()) {
            if (attribute.qualifiedName() == QLatin1String("name"))
                block.setName(text(attribute.value()));
            else if (!block.setAttribute(text(attribute.qualifiedName()), text(attribute.value()))) {
                m_xml.raiseError(QStringLiteral("unsupported attribute name '%1'")
                                     .arg(attribute.qualifiedName().toString()));
                return false;
            }
        }
        while (m_xml.readNextStartElement()) {
            if (m_xml.qualifiedName() == QLatin1String(paramElement)) {
                if (!readParam(block))
                    return false;
            } else if (m_xml.qualifiedName() == QLatin1String(blockElement)) {
                if (!readBlock(*block.addSubProperties(std::string()), depth + 1))
                    return false;
            } else {
                m_xml.raiseError(
                    QStringLiteral("unexpected element <%1>").arg(m_xml.qualifiedName().toString()));
                return false;
            }
        }
        return !m_xml.hasError();
    }

    bool readParam(Properties& block) {
        const QXmlStreamAttributes attributes = m_xml.attributes();
        if (!attributes.hasAttribute(QLatin1String("name"))) {
            m_xml.raiseError(QStringLiteral("a <param> element has no name attribute"));
            return false;
        }
        const std::string name = text(attributes.value(QLatin1String("name")));
        const std::string type = attributes.hasAttribute(QLatin1String("type"))
                                     ? text(attributes.value(QLatin1String("type")))
                                     : std::string("string");
        if (block.hasParam(name)) {
            m_xml.raiseError(QStringLiteral("parameter '%1' appears twice").arg(qt(name)));
            return false;
        }
        const std::string value =
            m_xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement).toStdString();
        if (m_xml.hasError())
            return false;
        if (!block.setParamText(name, value, type)) {
            m_xml.raiseError(QStringLiteral("value '%1' of parameter '%2' is not a valid %3")
                                 .arg(qt(value), qt(name), qt(type)));
            return false;
        }
        for (const QXmlStreamAttribute& attribute : attributes) {
            const QStringRef key = attribute.qualifiedName();
            if (key != QLatin1String("name") && key != QLatin1String("type") &&
                !block.setParamAttribute(name, text(key), text(attribute.value()))) {
                m_xml.raiseError(QStringLiteral("unsupported attribute name '%1'")
                                     .arg(attribute.qualifiedName().toString()));
                return false;
            }
        }
        return true;
    }

    QXmlStreamReader m_xml;
};

std::optional<Properties> fail(PropertiesXml::Error failure, PropertiesXml::Error* error) {
    KESTRION_LOG_ERROR(category, "Could not read properties from '"
                                     << failure.source << "' (line " << failure.line << ", column "
                                     << failure.column << "): " << failure.reason);
    if (error)
        *error = std::move(failure);
    return std::nullopt;
}

// ---- writing ----

// XML 1.0 cannot carry most control characters, even escaped; text that is not UTF-8 would be
// silently altered. Both are refused instead of producing a file that does not read back.
bool checkWritable(const std::string& value, const char* what, const std::string& owner) {
    const QString converted = qt(value);
    if (converted.toStdString() != value) {
        KESTRION_LOG_ERROR(category, "Cannot write properties: the " << what << " of '" << owner
                                                                     << "' is not valid UTF-8");
        return false;
    }
    for (const QChar c : converted) {
        const ushort code = c.unicode();
        if (code < 0x20 && code != '\t' && code != '\n' && code != '\r') {
            KESTRION_LOG_ERROR(category, "Cannot write properties: the "
                                             << what << " of '" << owner << "' holds the control character "
                                             << code << ", which XML cannot carry");
            return false;
        }
        if (code == 0xFFFE || code == 0xFFFF) {
            KESTRION_LOG_ERROR(category, "Cannot write properties: the " << what << " of '" << owner
                                                                         << "' holds a non-character");
            return false;
        }
    }
    return true;
}

// Element text keeps carriage returns only as character references: a raw one would be
// read back as a line feed.
void writeValue(QXmlStreamWriter& xml, const QString& value) {
    int start = 0;
    for (int i = 0; i < value.size(); ++i)
        if (value[i] == QLatin1Char('\r')) {
            xml.writeCharacters(value.mid(start, i - start));
            xml.writeEntityReference(QStringLiteral("#13"));
            start = i + 1;
        }
    xml.writeCharacters(value.mid(start));
}

bool writeAttributes(QXmlStreamWriter& xml, const Properties::Attributes& attributes,
                     const std::string& owner) {
    for (const auto& [key, value] : attributes) {
        if (!checkWritable(value, "attribute value", owner))
            return false;
        xml.writeAttribute(qt(key), qt(value));
    }
    return true;
}

bool writeBlock(QXmlStreamWriter& xml, const Properties& block) {
    if (!checkWritable(block.name(), "name", block.name()))
        return false;
    xml.writeStartElement(QLatin1String(blockElement));
    xml.writeAttribute(QStringLiteral("name"), qt(block.name()));
    if (!writeAttributes(xml, block.attributes(), block.name()))
        return false;
    for (const std::string& name : block.paramNames()) {
        const std::string value = *block.paramText(name);
        if (!checkWritable(name, "name", name) || !checkWritable(value, "value", name))
            return false;
        xml.writeStartElement(QLatin1String(paramElement));
        xml.writeAttribute(QStringLiteral("name"), qt(name));
        xml.writeAttribute(QStringLiteral("type"), qt(block.paramType(name)));
        if (!writeAttributes(xml, block.paramAttributes(name), name))
            return false;
        writeValue(xml, qt(value));
        xml.writeEndElement();
    }
    for (const Properties* child : block.subProperties())
        if (!writeBlock(xml, *child))
            return false;
    xml.writeEndElement();
    return true;
}

} // namespace

std::string PropertiesXml::Error::message() const {
    return source + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + reason;
}

std::optional<Properties> PropertiesXml::readFile(const Filesystem::Path& file, Error* error) {
    std::string reason;
    const std::optional<std::string> content = Filesystem::File::readText(file, &reason);
    if (!content)
        return fail(Error{file.str(), 0, 0, reason}, error);
    std::optional<Properties> result = readString(*content, file.str(), error);
    if (result)
        result->setBaseFolder(file.absolute().parent().str());
    return result;
}

std::optional<Properties> PropertiesXml::readString(const std::string& xml, const std::string& sourceName,
                                                    Error* error) {
    Properties root;
    Reader reader(xml);
    if (!reader.read(root)) {
        QXmlStreamReader& state = reader.xml();
        return fail(
            Error{sourceName, state.lineNumber(), state.columnNumber(), state.errorString().toStdString()},
            error);
    }
    return root;
}

std::optional<std::string> PropertiesXml::toString(const Properties& properties) {
    QByteArray buffer;
    QXmlStreamWriter xml(&buffer);
    xml.setAutoFormatting(true);
    xml.setAutoFormattingIndent(4);
    xml.writeStartDocument();
    if (!writeBlock(xml, properties))
        return std::nullopt;
    xml.writeEndDocument();
    return buffer.toStdString();
}

bool PropertiesXml::writeFile(const Properties& properties, const Filesystem::Path& file) {
    const std::optional<std::string> xml = toString(properties);
    if (!xml) {
        KESTRION_LOG_ERROR(category, "Could not write properties to '" << file.str() << "'");
        return false;
    }
    return Filesystem::File::writeText(file, *xml);
}

} // namespace Kestrion
