#pragma once
// A registry member that writes what it is told into a shared journal, and can
// run a hook (adding or removing members) from inside a walk.
#include "D3D9Resource.h"

#include <functional>
#include <string>
#include <vector>

struct Probe : public kv::CD3D9Resource
{
    Probe(std::vector<std::string>* journal, const std::string& name) : m_journal(journal), m_name(name) {}

    void notifyOnDeviceDestroy() override { Note("destroy"); }
    void notifyOnDeviceLost() override { Note("lost"); }
    void notifyOnDeviceReset() override { Note("reset"); }

    std::vector<std::string>* m_journal;
    std::string m_name;
    std::function<void()> m_hook;

private:
    void Note(const char* what)
    {
        if (m_journal)
            m_journal->push_back(m_name + " " + what);
        if (m_hook)
            m_hook();
    }
};
