#include "ActingIdentity.h"

#include <sys/fsuid.h>

namespace quillane::daemon
{

namespace
{

constexpr auto unchanged = static_cast<uid_t>(-1);

} // namespace

ActingIdentity::ActingIdentity(uid_t uid, gid_t gid) : m_uid(uid), m_gid(gid)
{
    m_valid = become(uid, gid);
}

ActingIdentity::~ActingIdentity()
{
    become(0, 0);
}

void ActingIdentity::actFor(uid_t owner)
{
    const uid_t wanted = owner == 0 ? 0 : m_uid;
    if (wanted != m_current && !become(wanted, wanted == 0 ? 0 : m_gid))
        m_valid = false;
}

bool ActingIdentity::become(uid_t uid, gid_t gid)
{
    // Each call answers with the identity before it; an invalid id only reads it.
    setfsgid(gid);
    setfsuid(uid);
    const bool taken = static_cast<uid_t>(setfsuid(unchanged)) == uid &&
                       static_cast<gid_t>(setfsgid(static_cast<gid_t>(unchanged))) == gid;
    m_current = taken ? uid : 0;
    return taken;
}

} // namespace quillane::daemon
