#include "DeviceFolderWriter.h"

#include "AnswerKey.h"
#include "ContentBuilder.h"
#include "Generation.h"
#include "MediaWriter.h"
#include "MkdeviceError.h"
#include "PhotosDatabaseWriter.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QSaveFile>

namespace {

void writeWholeFile(const QString& path, const QByteArray& bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        throw MkdeviceError::output(QStringLiteral("Could not write “%1”: %2.").arg(path, file.errorString()));
}

QString modeName(FilesMode mode)
{
    switch (mode) {
    case FilesMode::none:
        return "no media files";
    case FilesMode::sparse:
        return "sparse files";
    case FilesMode::real:
        return "real files";
    }
    return {};
}

} // namespace

DeviceFolderWriter::DeviceFolderWriter(const MkdeviceOptions& options, QTextStream& out, QTextStream& progress)
    : m_options(options), m_out(out), m_progress(progress)
{
}

void DeviceFolderWriter::prepareFolder()
{
    const QString folder = m_options.outputFolder;
    const QFileInfo info(folder);
    if (info.exists() && !info.isDir())
        throw MkdeviceError::output(
            QStringLiteral("“%1” is a file, not a folder; give a new or empty folder.").arg(folder));
    if (info.exists() && !QDir(folder).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
        throw MkdeviceError::output(
            QStringLiteral(
                "The folder “%1” is not empty; give a new or empty folder, so that nothing in it is overwritten.")
                .arg(folder));
    if (!QDir().mkpath(folder + "/media/PhotoData"))
        throw MkdeviceError::output(
            QStringLiteral("Could not create the folder “%1”.").arg(folder + "/media/PhotoData"));
}

void DeviceFolderWriter::write()
{
    const Generation& generation = Generation::named(m_options.generation);
    prepareFolder();
    const QString media = QDir(m_options.outputFolder).absoluteFilePath("media");

    ContentBuilder builder(m_options, generation);
    PhoneContent content = builder.build();

    const bool files = m_options.files != FilesMode::none;
    MediaWriter::Totals written;
    if (files) {
        QList<MediaFile*> list;
        for (PhoneAsset& asset : content.assets) {
            for (MediaFile& file : asset.files)
                list << &file;
            if (asset.thumbnail)
                list << &*asset.thumbnail;
        }
        for (MediaFile& file : content.unknownFiles)
            list << &file;
        for (MediaFile& file : content.otherFiles)
            list << &file;
        m_progress << "Writing " << list.size() << " media files of " << content.assets.size() << " items…\n";
        m_progress.flush();
        int shown = 0;
        written = MediaWriter::writeAll(
            media, m_options.files, !m_options.answerKeyPath.isEmpty(), list, [&](qsizetype done) {
                const int percent = list.isEmpty() ? 100 : int(done * 100 / list.size());
                if (list.size() >= 5000 && percent / 10 > shown / 10 && percent < 100) {
                    shown = percent;
                    m_progress << "  " << percent << "% (" << done << " of " << list.size() << " files)\n";
                    m_progress.flush();
                }
            });
    }

    m_progress << "Writing the Photos database…\n";
    m_progress.flush();
    PhotosDatabaseWriter database(generation, m_options.version, m_options.seed);
    database.write(media + "/PhotoData/Photos.sqlite", content);

    QJsonObject device;
    device["udid"] = m_options.udid;
    device["name"] = m_options.name;
    device["productType"] = m_options.productType;
    device["productVersion"] = m_options.version;
    device["connection"] = "USB";
    device["listedTwice"] = false;
    device["faults"] = QJsonObject();
    writeWholeFile(QDir(m_options.outputFolder).filePath("device.json"),
                   QJsonDocument(device).toJson(QJsonDocument::Indented));

    if (!m_options.answerKeyPath.isEmpty())
        writeWholeFile(m_options.answerKeyPath, AnswerKey::toJson(generation, content, files));

    const qsizetype albums =
        std::count_if(content.albums.begin(), content.albums.end(), [](const PhoneAlbum& a) { return a.kind == 2; });
    m_out << "Wrote “" << m_options.outputFolder << "”: " << m_options.productType << " with " << generation.id << " ("
          << m_options.version << "), " << content.assets.size() << " items, " << albums << " albums, " << written.files
          << " files of " << QLocale::c().formattedDataSize(written.bytes, 1, QLocale::DataSizeSIFormat) << " ("
          << modeName(m_options.files) << ").\n";
}
