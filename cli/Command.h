#pragma once

#include <QCommandLineParser>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include <optional>

// Where a command reads and writes. Tests give it string buffers; main() gives it the terminal.
struct CommandContext {
    QTextStream& out;
    QTextStream& err;
    QTextStream* in = nullptr; // answers to questions; absent when there is no input
    bool outIsTerminal = false;
    bool inIsTerminal = false;
};

// Exit codes shared by every command.
namespace ExitCode {
inline constexpr int ok = 0;
inline constexpr int runHadErrors = 1;
inline constexpr int usage = 2;
inline constexpr int failed = 3;
} // namespace ExitCode

// One sub-command of ombrelo-cli: it owns its options and writes only to the streams it is given.
class Command {
public:
    virtual ~Command() = default;

    virtual QString name() const = 0;
    // One line for the command list of `ombrelo-cli --help`.
    virtual QString summary() const = 0;
    // Declares the command's options and positional arguments on the parser.
    virtual void configure(QCommandLineParser& parser) const = 0;
    // Runs with the parsed options; returns the exit code.
    virtual int run(const QCommandLineParser& parser, CommandContext& context) = 0;

    // Parses `arguments` (without the program and command names) and runs the command.
    int execute(const QStringList& arguments, CommandContext& context);
    // The command's full help text.
    QString help() const;

protected:
    // Reports a usage error the way every command does: one line, then the usage, exit 2.
    int usageError(CommandContext& context, const QString& message) const;
};
