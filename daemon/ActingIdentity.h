#pragma once

#include <sys/types.h>

namespace quillane::daemon
{

// The file-system identity of the calling thread while it works for a user: the user's own,
// and root's only for what root owns. The kernel checks file access against this identity
// (setfsuid/setfsgid), which belongs to the calling thread alone, so workers serving different
// users do not disturb each other. Root's identity comes back when the object goes.
class ActingIdentity
{
public:
    ActingIdentity(uid_t uid, gid_t gid);
    ~ActingIdentity();
    ActingIdentity(const ActingIdentity&) = delete;
    ActingIdentity& operator=(const ActingIdentity&) = delete;

    // Whether the thread could take the user's identity; when not, it must do nothing for them.
    bool isValid() const { return m_valid; }
    // Takes the identity to work with something that `owner` owns: root's for root's, the
    // user's for anything else.
    void actFor(uid_t owner);

private:
    bool become(uid_t uid, gid_t gid);

    uid_t m_uid;
    gid_t m_gid;
    uid_t m_current = 0;
    bool m_valid = false;
};

} // namespace quillane::daemon
