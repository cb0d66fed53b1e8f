#include "CliRun.h"

#include "CommandLine.h"

#include <QTextStream>

CliRun CliRun::of(const QStringList& arguments)
{
    CliRun run;
    QTextStream out(&run.out);
    QTextStream err(&run.err);
    CommandContext context{out, err};
    run.code = CommandLine().run(arguments, context);
    out.flush();
    err.flush();
    return run;
}

void PrintTo(const CliRun& run, std::ostream* os)
{
    *os << "exit " << run.code << "\nout:\n" << run.out.toStdString() << "\nerr:\n" << run.err.toStdString();
}
