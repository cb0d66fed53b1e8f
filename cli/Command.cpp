#include "Command.h"

namespace {

void prepare(const Command& command, QCommandLineParser& parser)
{
    parser.setApplicationDescription(command.summary());
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.addOption({{"h", "help"}, "Show this help."});
    command.configure(parser);
}

} // namespace

QString Command::help() const
{
    QCommandLineParser parser;
    prepare(*this, parser);
    QString text = parser.helpText();
    // Qt names the running executable; name the command as users type it.
    const qsizetype end = text.indexOf('\n');
    const QString firstLine = text.left(end);
    const qsizetype options = firstLine.indexOf(" [options]");
    const QString rest = options >= 0 ? firstLine.mid(options) : QString();
    return "Usage: ombrelo-cli " + name() + rest + text.mid(end);
}

int Command::usageError(CommandContext& context, const QString& message) const
{
    context.err << "ombrelo-cli " << name() << ": " << message << "\n" << help();
    context.err.flush();
    return ExitCode::usage;
}

int Command::execute(const QStringList& arguments, CommandContext& context)
{
    QCommandLineParser parser;
    prepare(*this, parser);
    if (!parser.parse(QStringList{"ombrelo-cli " + name()} + arguments))
        return usageError(context, parser.errorText());
    if (parser.isSet("help")) {
        context.out << help();
        context.out.flush();
        return ExitCode::ok;
    }
    const int code = run(parser, context);
    context.out.flush();
    context.err.flush();
    return code;
}
