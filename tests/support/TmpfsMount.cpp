#include "TmpfsMount.h"

#include "RunProgram.h"

#include <QDir>

TmpfsMount::TmpfsMount(const QString& folder, const QString& size) : m_folder(folder)
{
    QDir().mkpath(folder);
    const ProgramResult mount =
        runProgram("mount", {"-t", "tmpfs", "-o", "size=" + size + ",mode=0755", "tmpfs", folder}, 20);
    m_mounted = mount.exitCode == 0;
    if (!m_mounted)
        m_error = "cannot mount a tmpfs on " + folder + " (" + mount.describe().simplified() + ")";
}

TmpfsMount::~TmpfsMount()
{
    if (!m_mounted)
        return;
    // Lazily when something still holds it, so that no test leaves a mount behind.
    if (runProgram("umount", {m_folder}, 20).exitCode != 0)
        runProgram("umount", {"-l", m_folder}, 20);
}

bool TmpfsMount::setReadOnly(bool readOnly)
{
    return m_mounted && runProgram("mount", {"-o", readOnly ? "remount,ro" : "remount,rw", m_folder}, 20).exitCode == 0;
}
