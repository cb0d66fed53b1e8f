#include "DeviceFolderWriter.h"
#include "MkdeviceError.h"
#include "MkdeviceOptions.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);
    try {
        const MkdeviceOptions options = MkdeviceOptions::parse(app.arguments().mid(1));
        if (options.help) {
            out << MkdeviceOptions::helpText();
            return 0;
        }
        DeviceFolderWriter(options, out, err).write();
        return 0;
    } catch (const MkdeviceError& error) {
        out.flush();
        err << "ombrelo-mkdevice: " << error.description() << "\n";
        return error.kind() == MkdeviceError::Kind::usage ? 2 : 1;
    } catch (const std::exception& error) {
        out.flush();
        err << "ombrelo-mkdevice: an unexpected failure stopped the work: " << error.what() << "\n";
        return 1;
    }
}
