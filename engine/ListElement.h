#pragma once
// A node of an intrusive doubly linked list. A node in no list has null links;
// a list head's three words point at itself.
struct ListElement
{
    ListElement* m_pPrev;
    ListElement* m_pNext;
    ListElement* m_pList;
    ListElement() : m_pPrev(nullptr), m_pNext(nullptr), m_pList(nullptr) {}
};
