#include "CommandLine.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Ombrelo");
    QCoreApplication::setApplicationName("Ombrelo");

    QTextStream out(stdout);
    QTextStream err(stderr);
    QTextStream in(stdin);
    CommandContext context{out, err, &in, isatty(STDOUT_FILENO) == 1, isatty(STDIN_FILENO) == 1};

    CommandLine commandLine;
    const int code = commandLine.run(app.arguments().mid(1), context);
    out.flush();
    err.flush();
    return code;
}
