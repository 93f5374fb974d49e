#pragma once

#include <QDBusArgument>

namespace quillane
{

// A D-Bus structure made of the given fields, in order: what the << and >> operators that the
// Qt D-Bus type system asks of a struct write and read.
template <class... Fields>
QDBusArgument& writeStructure(QDBusArgument& argument, const Fields&... fields)
{
    argument.beginStructure();
    (argument << ... << fields);
    argument.endStructure();
    return argument;
}

template <class... Fields>
const QDBusArgument& readStructure(const QDBusArgument& argument, Fields&... fields)
{
    argument.beginStructure();
    (argument >> ... >> fields);
    argument.endStructure();
    return argument;
}

} // namespace quillane
