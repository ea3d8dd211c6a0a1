#include "D3D9RenderSystem/D3D9ParseEffect.h"

#include "D3D9RenderSystem/EffectHeap.h"
#include "D3D9RenderSystem/EffectLog.h"

#include <algorithm>
#include <cstring>

#define EFFECT_ERROR(...) EffectLogError("D3D9ParseEffect", __LINE__, __VA_ARGS__)

namespace
{

// Structs within structs, and samplers whose states hold samplers, recurse; a
// file cannot take the reader deeper than this.
const uint32_t kMaxDepth = 64;

// Smallest sizes of the records a cursor reads, to refuse counts that cannot fit.
const uint32_t kParameterRecordBytes = 16;
const uint32_t kTechniqueRecordBytes = 12;
const uint32_t kPassRecordBytes = 12;
const uint32_t kAnnotationRecordBytes = 8;
const uint32_t kStateRecordBytes = 16;
const uint32_t kTypeDefinitionBytes = 20;
const uint32_t kObjectRecordBytes = 8;
const uint32_t kResourceRecordBytes = 20;

// Element arrays reuse one definition, so a few bytes can describe a huge tree:
// all that one file may make is bounded by its size. Name lookups of resource
// records are bounded the same way, in characters compared.
const uint64_t kMemoryPerFileByte = 64;
const uint64_t kMemoryAllowance = 1 << 20;
const uint64_t kWalkStepsPerFileByte = 256;
const uint64_t kWalkStepsAllowance = 16 << 20;

const uint32_t kNoIndex = 0xFFFFFFFF;

struct Reader
{
    ParsedEffect* effect;
    const uint8_t* base; // byte 8 of the file: every offset counts from here
    uint64_t length;     // bytes from base to the end of the data
    uint64_t memoryLeft;
    EffectWalkBudget walk;
    uint32_t depth;
};

struct Cursor
{
    uint64_t pos; // from base; may lie past the end, then every read fails
};

// Slots of strings, textures and shaders inside a value block.
struct SlotCursor
{
    void** slots;
    uint64_t count;
    uint64_t next;
};

// Counts one level of recursion for as long as it lives.
class Nesting
{
public:
    explicit Nesting(Reader& reader) : m_reader(reader) { ++m_reader.depth; }
    ~Nesting() { --m_reader.depth; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

    uint32_t Check() const
    {
        if (m_reader.depth <= kMaxDepth)
            return EFFECT_OK;
        EFFECT_ERROR("Effect nests deeper than %u levels\n", kMaxDepth);
        return EFFECT_E_FAIL;
    }

private:
    Reader& m_reader;
};

uint32_t LoadWord(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

unsigned Printable(uint64_t value)
{
    return static_cast<unsigned>(std::min<uint64_t>(value, 0xFFFFFFFFu));
}

uint64_t Remaining(const Reader& r, const Cursor& c)
{
    return c.pos <= r.length ? r.length - c.pos : 0;
}

uint32_t ReadWord(Reader& r, Cursor& c, uint32_t& out)
{
    if (Remaining(r, c) < 4)
    {
        EFFECT_ERROR("Read outside the effect data: 4 bytes at offset %u of %u\n", Printable(c.pos),
                     Printable(r.length));
        return EFFECT_E_FAIL;
    }
    out = LoadWord(r.base + c.pos);
    c.pos += 4;
    return EFFECT_OK;
}

uint32_t CheckRecords(Reader& r, const Cursor& c, uint64_t bytes, const char* what, uint32_t count)
{
    if (bytes <= Remaining(r, c))
        return EFFECT_OK;
    EFFECT_ERROR("%s count %u does not fit in the %u bytes left of the effect data\n", what, count,
                 Printable(Remaining(r, c)));
    return EFFECT_E_FAIL;
}

uint32_t CheckValueSize(Reader& r, uint64_t bytes)
{
    if (bytes <= r.length)
        return EFFECT_OK;
    EFFECT_ERROR("Value larger than the %u bytes of effect data\n", Printable(r.length));
    return EFFECT_E_FAIL;
}

// Out of the file's allowance: a failure of the file (EFFECT_E_FAIL, logged
// here). Out of memory: EFFECT_E_OUTOFMEMORY, which the caller reports.
uint32_t Allocate(Reader& r, void** out, uint32_t flags, uint64_t size)
{
    *out = nullptr;
    if (size > r.memoryLeft || size > SIZE_MAX)
    {
        EFFECT_ERROR("Effect asks for more memory than a file of %u bytes may use\n", Printable(r.length + 8));
        return EFFECT_E_FAIL;
    }
    r.memoryLeft -= size;
    *out = MyHeapAlloc(flags, static_cast<size_t>(size));
    return *out ? EFFECT_OK : EFFECT_E_OUTOFMEMORY;
}

template <class T>
uint32_t AllocateRecords(Reader& r, T** out, uint32_t count)
{
    void* block = nullptr;
    uint32_t result = Allocate(r, &block, EFFECT_HEAP_ZERO_MEMORY, static_cast<uint64_t>(count) * sizeof(T));
    *out = static_cast<T*>(block);
    if (result == EFFECT_E_OUTOFMEMORY)
        EFFECT_ERROR("Out of memory\n");
    return result;
}

uint32_t Register(Reader& r, EffectParameter* parameter)
{
    ParsedEffect* e = r.effect;
    if (e->handle_count == e->handle_capacity)
    {
        const uint64_t capacity = e->handle_capacity ? static_cast<uint64_t>(e->handle_capacity) * 2 : 16;
        void* table = nullptr;
        uint32_t result = Allocate(r, &table, 0, capacity * sizeof(EffectParameter*));
        if (result == EFFECT_E_OUTOFMEMORY)
        {
            EFFECT_ERROR("Out of memory.\n");
            return EFFECT_OK; // the entry is dropped; the parameter gets no handle
        }
        if (result != EFFECT_OK)
            return result;
        if (e->handles)
            std::memcpy(table, e->handles, e->handle_count * sizeof(EffectParameter*));
        MyHeapFree(0, e->handles);
        e->handles = static_cast<EffectParameter**>(table);
        e->handle_capacity = static_cast<uint32_t>(capacity);
    }
    e->handles[e->handle_count++] = parameter;
    return EFFECT_OK;
}

// Length (4), then that many bytes with the terminator among them. One zero byte
// more is kept behind them, so a text without its terminator still ends.
uint32_t ReadString(Reader& r, uint64_t offset, char** out)
{
    *out = nullptr;
    Cursor c{offset};
    uint32_t length = 0;
    uint32_t result = ReadWord(r, c, length);
    if (result != EFFECT_OK || length == 0)
        return result;
    if (length > Remaining(r, c))
    {
        EFFECT_ERROR("String of %u bytes at offset %u runs past the end of the effect data\n", length,
                     Printable(offset));
        return EFFECT_E_FAIL;
    }
    void* text = nullptr;
    result = Allocate(r, &text, 0, static_cast<uint64_t>(length) + 1);
    if (result == EFFECT_E_OUTOFMEMORY)
        EFFECT_ERROR("Failed to allocate name memory.\n");
    if (result != EFFECT_OK)
        return result;
    std::memcpy(text, r.base + c.pos, length);
    static_cast<char*>(text)[length] = '\0';
    *out = static_cast<char*>(text);
    return EFFECT_OK;
}

uint32_t ParseType(Reader& r, EffectParameter* p, Cursor& tc, const EffectParameter* parent, uint32_t flags);

// Member i of an array or a structure: registered, read, and its bytes added
// to the running total, which must stay within what a value may hold.
uint32_t ParseMember(Reader& r, EffectParameter* p, uint32_t i, Cursor& tc, const EffectParameter* parent,
                     uint32_t flags, uint64_t& bytes)
{
    uint32_t result = Register(r, &p->members[i]);
    if (result != EFFECT_OK)
        return result;
    if ((result = ParseType(r, &p->members[i], tc, parent, flags)) != EFFECT_OK)
    {
        EffectLogWarning("Failed to parse member %u\n", i);
        return result;
    }
    bytes += p->members[i].bytes;
    return CheckValueSize(r, bytes);
}

uint32_t ParseType(Reader& r, EffectParameter* p, Cursor& tc, const EffectParameter* parent, uint32_t flags)
{
    Nesting nesting(r);
    uint32_t result = nesting.Check();
    if (result != EFFECT_OK)
        return result;

    p->flags = flags;
    if (parent)
    {
        p->type = parent->type;
        p->class_ = parent->class_;
        p->name = parent->name;
        p->semantic = parent->semantic;
        p->member_count = parent->member_count;
        p->bytes = parent->bytes;
        p->rows = parent->rows;
        p->columns = parent->columns;
        p->element_count = 0;
        p->annotation_count = 0;
    }
    else
    {
        uint32_t nameOffset = 0, semanticOffset = 0;
        if ((result = ReadWord(r, tc, p->type)) != EFFECT_OK || (result = ReadWord(r, tc, p->class_)) != EFFECT_OK ||
            (result = ReadWord(r, tc, nameOffset)) != EFFECT_OK ||
            (result = ReadWord(r, tc, semanticOffset)) != EFFECT_OK ||
            (result = ReadWord(r, tc, p->element_count)) != EFFECT_OK)
            return result;
        if ((result = ReadString(r, nameOffset, &p->name)) != EFFECT_OK)
        {
            EffectLogWarning("Failed to parse name\n");
            return result;
        }
        if ((result = ReadString(r, semanticOffset, &p->semantic)) != EFFECT_OK)
        {
            EffectLogWarning("Failed to parse semantic\n");
            return result;
        }
        switch (p->class_)
        {
        case D3DXPC_SCALAR:
        case D3DXPC_MATRIX_ROWS:
        case D3DXPC_MATRIX_COLUMNS:
            if ((result = ReadWord(r, tc, p->rows)) != EFFECT_OK || (result = ReadWord(r, tc, p->columns)) != EFFECT_OK)
                return result;
            break;
        case D3DXPC_VECTOR: // columns stand first
            if ((result = ReadWord(r, tc, p->columns)) != EFFECT_OK || (result = ReadWord(r, tc, p->rows)) != EFFECT_OK)
                return result;
            break;
        case D3DXPC_OBJECT:
            if (EffectIsSlotType(p->type))
                p->bytes = 4;
            else if (EffectIsSamplerType(p->type))
                p->bytes = 0;
            else
                EFFECT_ERROR("Unhandled type %s\n", EffectTypeName(p->type));
            break;
        case D3DXPC_STRUCT:
            if ((result = ReadWord(r, tc, p->member_count)) != EFFECT_OK)
                return result;
            break;
        default:
            EFFECT_ERROR("Unhandled class %s\n", EffectClassName(p->class_));
            break;
        }
        if (p->class_ <= D3DXPC_MATRIX_COLUMNS)
        {
            const uint64_t bytes = 4ull * p->rows * p->columns;
            if ((result = CheckValueSize(r, bytes)) != EFFECT_OK)
                return result;
            p->bytes = static_cast<uint32_t>(bytes);
        }
    }

    if (p->element_count != 0)
    {
        if ((result = AllocateRecords(r, &p->members, p->element_count)) != EFFECT_OK)
            return result;
        // Every element reads the same member definitions.
        const Cursor definitions = tc;
        uint64_t bytes = 0;
        for (uint32_t i = 0; i < p->element_count; ++i)
        {
            tc = definitions;
            if ((result = ParseMember(r, p, i, tc, p, flags, bytes)) != EFFECT_OK)
                return result;
        }
        p->bytes = static_cast<uint32_t>(bytes);
    }
    else if (p->member_count != 0)
    {
        if ((result = CheckRecords(r, tc, static_cast<uint64_t>(p->member_count) * kTypeDefinitionBytes, "Member",
                                   p->member_count)) != EFFECT_OK ||
            (result = AllocateRecords(r, &p->members, p->member_count)) != EFFECT_OK)
            return result;
        uint64_t bytes = p->bytes;
        for (uint32_t i = 0; i < p->member_count; ++i)
        {
            if ((result = ParseMember(r, p, i, tc, nullptr, flags, bytes)) != EFFECT_OK)
                return result;
        }
        p->bytes = static_cast<uint32_t>(bytes);
    }
    return EFFECT_OK;
}

bool IsSlotLeaf(const EffectParameter* p)
{
    return p->class_ == D3DXPC_OBJECT && p->element_count == 0 && EffectIsSlotType(p->type);
}

uint64_t CountSlots(const EffectParameter* p)
{
    if (p->element_count != 0)
    {
        uint64_t count = 0;
        for (uint32_t i = 0; p->members && i < p->element_count; ++i)
            count += CountSlots(&p->members[i]);
        return count;
    }
    if (p->class_ == D3DXPC_STRUCT)
    {
        uint64_t count = 0;
        for (uint32_t i = 0; p->members && i < p->member_count; ++i)
            count += CountSlots(&p->members[i]);
        return count;
    }
    return IsSlotLeaf(p) ? 1 : 0;
}

uint32_t ParseState(Reader& r, EffectState* state, Cursor& c);

uint32_t ParseSampler(Reader& r, EffectSampler* sampler, Cursor& vc)
{
    Nesting nesting(r);
    uint32_t result = nesting.Check();
    uint32_t count = 0;
    if (result != EFFECT_OK || (result = ReadWord(r, vc, count)) != EFFECT_OK)
        return result;
    if (count == 0)
        return EFFECT_OK;
    if ((result = CheckRecords(r, vc, static_cast<uint64_t>(count) * kStateRecordBytes, "Sampler state", count)) !=
            EFFECT_OK ||
        (result = AllocateRecords(r, &sampler->states, count)) != EFFECT_OK)
        return result;
    sampler->state_count = count;
    for (uint32_t i = 0; i < count; ++i)
    {
        if ((result = ParseState(r, &sampler->states[i], vc)) != EFFECT_OK)
        {
            EffectLogWarning("Failed to parse state %u\n", i);
            return result;
        }
    }
    return EFFECT_OK;
}

// Points the parameter, its elements and members into the value block, reading
// object ids and sampler records from the value cursor as it goes.
uint32_t Distribute(Reader& r, EffectParameter* p, uint8_t* pointer, Cursor& vc, SlotCursor& slots)
{
    Nesting nesting(r);
    uint32_t result = nesting.Check();
    if (result != EFFECT_OK)
        return result;

    if (p->element_count != 0 || p->class_ == D3DXPC_STRUCT)
    {
        p->data = pointer;
        const uint32_t count = p->element_count != 0 ? p->element_count : p->member_count;
        uint64_t offset = 0;
        for (uint32_t i = 0; p->members && i < count; ++i)
        {
            if ((result = Distribute(r, &p->members[i], pointer ? pointer + offset : nullptr, vc, slots)) != EFFECT_OK)
            {
                EffectLogWarning("Failed to parse value %u\n", i);
                return result;
            }
            offset += p->members[i].bytes;
        }
        return EFFECT_OK;
    }

    switch (p->class_)
    {
    case D3DXPC_SCALAR:
    case D3DXPC_VECTOR:
    case D3DXPC_MATRIX_ROWS:
    case D3DXPC_MATRIX_COLUMNS:
        p->data = pointer;
        return EFFECT_OK;
    case D3DXPC_OBJECT:
        if (EffectIsSlotType(p->type))
        {
            if (slots.next >= slots.count)
            {
                EFFECT_ERROR("Value has no room for the object of %s\n", EffectTypeName(p->type));
                return EFFECT_E_FAIL;
            }
            p->data = &slots.slots[slots.next++];
            if ((result = ReadWord(r, vc, p->object_id)) != EFFECT_OK)
                return result;
            if (p->object_id >= r.effect->object_count)
            {
                EFFECT_ERROR("Object id %u is not below the object count %u\n", p->object_id, r.effect->object_count);
                return EFFECT_E_FAIL;
            }
            r.effect->objects[p->object_id].parameter = p;
            return EFFECT_OK;
        }
        if (EffectIsSamplerType(p->type))
        {
            EffectSampler* sampler = nullptr;
            if ((result = AllocateRecords(r, &sampler, 1)) != EFFECT_OK)
                return result;
            p->data = sampler;
            if ((result = ParseSampler(r, sampler, vc)) != EFFECT_OK)
            {
                EffectLogWarning("Failed to parse sampler\n");
                return result;
            }
            return EFFECT_OK;
        }
        EFFECT_ERROR("Unhandled type %s\n", EffectTypeName(p->type));
        return EFFECT_OK;
    default:
        EFFECT_ERROR("Unhandled class %s\n", EffectClassName(p->class_));
        return EFFECT_OK;
    }
}

uint32_t ParseValue(Reader& r, EffectParameter* p, uint64_t offset)
{
    uint32_t result = EFFECT_OK;
    uint8_t* raw = nullptr;
    SlotCursor slots{nullptr, 0, 0};
    if (p->bytes != 0)
    {
        // The raw value keeps the file's layout; the pointer-sized slots of
        // strings, textures and shaders stand behind it. A lone string, texture
        // or shader is nothing but its slot.
        const bool leaf = IsSlotLeaf(p);
        const uint64_t rawBytes = leaf ? 0 : (static_cast<uint64_t>(p->bytes) + 7) & ~7ull;
        slots.count = leaf ? 1 : CountSlots(p);
        void* block = nullptr;
        result = Allocate(r, &block, EFFECT_HEAP_ZERO_MEMORY,
                          std::max<uint64_t>(rawBytes + slots.count * sizeof(void*), p->bytes));
        if (result == EFFECT_E_OUTOFMEMORY)
            EFFECT_ERROR("Failed to allocate data memory.\n");
        if (result != EFFECT_OK)
            return result;
        p->data = block; // owned from here on, whatever follows
        raw = leaf ? nullptr : static_cast<uint8_t*>(block);
        slots.slots = reinterpret_cast<void**>(static_cast<uint8_t*>(block) + rawBytes);
        switch (p->class_)
        {
        case D3DXPC_SCALAR:
        case D3DXPC_VECTOR:
        case D3DXPC_MATRIX_ROWS:
        case D3DXPC_MATRIX_COLUMNS:
        case D3DXPC_STRUCT:
            if (offset > r.length || r.length - offset < p->bytes)
            {
                EFFECT_ERROR("Value of %u bytes at offset %u runs past the end of the effect data\n", p->bytes,
                             Printable(offset));
                EffectLogWarning("Failed to parse value\n");
                return EFFECT_E_FAIL;
            }
            std::memcpy(raw, r.base + offset, p->bytes);
            break;
        case D3DXPC_OBJECT:
            break;
        default:
            EFFECT_ERROR("Unhandled class %s\n", EffectClassName(p->class_));
            break;
        }
    }
    Cursor vc{offset};
    if ((result = Distribute(r, p, raw, vc, slots)) != EFFECT_OK)
        EffectLogWarning("Failed to parse value\n");
    return result;
}

uint32_t ParseAnnotation(Reader& r, EffectParameter* p, Cursor& c)
{
    uint32_t typeOffset = 0, valueOffset = 0;
    uint32_t result = ReadWord(r, c, typeOffset);
    if (result != EFFECT_OK)
        return result;
    Cursor tc{typeOffset};
    if ((result = ParseType(r, p, tc, nullptr, 4)) != EFFECT_OK)
    {
        EffectLogWarning("Failed to parse type definition\n");
        return result;
    }
    if ((result = ReadWord(r, c, valueOffset)) != EFFECT_OK)
        return result;
    if ((result = ParseValue(r, p, valueOffset)) != EFFECT_OK)
        EffectLogWarning("Failed to parse value\n");
    return result;
}

// Annotations of a pass or technique; the caller has checked that they fit.
uint32_t ParseAnnotations(Reader& r, EffectParameter** annotations, uint32_t* annotationCount, uint32_t count,
                          Cursor& c)
{
    if (count == 0)
        return EFFECT_OK;
    uint32_t result = AllocateRecords(r, annotations, count);
    if (result != EFFECT_OK)
        return result;
    *annotationCount = count;
    for (uint32_t i = 0; i < count; ++i)
    {
        if ((result = Register(r, &(*annotations)[i])) != EFFECT_OK)
            return result;
        if ((result = ParseAnnotation(r, &(*annotations)[i], c)) != EFFECT_OK)
        {
            EffectLogWarning("Failed to parse annotation %u\n", i);
            return result;
        }
    }
    return EFFECT_OK;
}

uint32_t ParseState(Reader& r, EffectState* state, Cursor& c)
{
    uint32_t typeOffset = 0, valueOffset = 0;
    uint32_t result = EFFECT_OK;
    if ((result = ReadWord(r, c, state->operation)) != EFFECT_OK ||
        (result = ReadWord(r, c, state->index)) != EFFECT_OK)
        return result;
    state->state_type = STATE_CONSTANT;
    if ((result = ReadWord(r, c, typeOffset)) != EFFECT_OK)
        return result;
    Cursor tc{typeOffset};
    if ((result = ParseType(r, &state->parameter, tc, nullptr, 0)) != EFFECT_OK)
    {
        EffectLogWarning("Failed to parse type definition\n");
        return result;
    }
    if ((result = ReadWord(r, c, valueOffset)) != EFFECT_OK)
        return result;
    if ((result = ParseValue(r, &state->parameter, valueOffset)) != EFFECT_OK)
        EffectLogWarning("Failed to parse value\n");
    return result;
}

uint32_t ParseParameter(Reader& r, EffectParameter* p, Cursor& c)
{
    uint32_t typeOffset = 0, valueOffset = 0, annotationCount = 0;
    uint32_t result = EFFECT_OK;
    if ((result = ReadWord(r, c, typeOffset)) != EFFECT_OK || (result = ReadWord(r, c, valueOffset)) != EFFECT_OK ||
        (result = ReadWord(r, c, p->flags)) != EFFECT_OK || (result = ReadWord(r, c, annotationCount)) != EFFECT_OK)
        return result;
    Cursor tc{typeOffset};
    if ((result = ParseType(r, p, tc, nullptr, p->flags)) != EFFECT_OK)
    {
        EffectLogWarning("Failed to parse type definition\n");
        return result;
    }
    if ((result = ParseValue(r, p, valueOffset)) != EFFECT_OK)
    {
        EffectLogWarning("Failed to parse value\n");
        return result;
    }
    if (annotationCount == 0)
        return EFFECT_OK;
    if ((result = CheckRecords(r, c, static_cast<uint64_t>(annotationCount) * kAnnotationRecordBytes, "Annotation",
                               annotationCount)) != EFFECT_OK ||
        (result = AllocateRecords(r, &p->annotations, annotationCount)) != EFFECT_OK)
        return result;
    p->annotation_count = annotationCount;
    for (uint32_t i = 0; i < annotationCount; ++i)
    {
        if ((result = Register(r, &p->annotations[i])) != EFFECT_OK)
            return result;
        if ((result = ParseAnnotation(r, &p->annotations[i], c)) != EFFECT_OK)
        {
            EffectLogWarning("Failed to parse annotation\n");
            return result;
        }
    }
    return EFFECT_OK;
}

// A technique and a pass open alike: name, annotation count, the count of the records
// they hold, then the annotations. Both counts are checked against the bytes left
// before anything is allocated for them.
template <typename Record>
uint32_t ParseNamedHead(Reader& r, Record* record, Cursor& c, uint32_t childRecordBytes, const char* childName,
                        uint32_t& childCount)
{
    uint32_t nameOffset = 0, annotationCount = 0;
    uint32_t result = ReadWord(r, c, nameOffset);
    if (result != EFFECT_OK)
        return result;
    if ((result = ReadString(r, nameOffset, &record->name)) != EFFECT_OK)
    {
        EffectLogWarning("Failed to parse name\n");
        return result;
    }
    if ((result = ReadWord(r, c, annotationCount)) != EFFECT_OK || (result = ReadWord(r, c, childCount)) != EFFECT_OK)
        return result;
    const uint64_t annotationBytes = static_cast<uint64_t>(annotationCount) * kAnnotationRecordBytes;
    if ((result = CheckRecords(r, c, annotationBytes, "Annotation", annotationCount)) != EFFECT_OK ||
        (result = CheckRecords(r, c, annotationBytes + static_cast<uint64_t>(childCount) * childRecordBytes, childName,
                               childCount)) != EFFECT_OK)
        return result;
    return ParseAnnotations(r, &record->annotations, &record->annotation_count, annotationCount, c);
}

// The children that a head announced: allocated, counted, then parsed in
// order; failure names the child that failed (a format with one %u).
template <typename Child>
uint32_t ParseChildren(Reader& r, Child** children, uint32_t* childCount, uint32_t count, Cursor& c,
                       uint32_t (*parseChild)(Reader&, Child*, Cursor&), const char* failure)
{
    if (count == 0)
        return EFFECT_OK;
    uint32_t result = AllocateRecords(r, children, count);
    if (result != EFFECT_OK)
        return result;
    *childCount = count;
    for (uint32_t i = 0; i < count; ++i)
    {
        if ((result = parseChild(r, &(*children)[i], c)) != EFFECT_OK)
        {
            EffectLogWarning(failure, i);
            return result;
        }
    }
    return EFFECT_OK;
}

uint32_t ParsePass(Reader& r, EffectPass* pass, Cursor& c)
{
    uint32_t stateCount = 0;
    uint32_t result = ParseNamedHead(r, pass, c, kStateRecordBytes, "State", stateCount);
    if (result != EFFECT_OK)
        return result;
    return ParseChildren(r, &pass->states, &pass->state_count, stateCount, c, ParseState, "Failed to parse state %u\n");
}

uint32_t ParseTechnique(Reader& r, EffectTechnique* technique, Cursor& c)
{
    uint32_t passCount = 0;
    uint32_t result = ParseNamedHead(r, technique, c, kPassRecordBytes, "Pass", passCount);
    if (result != EFFECT_OK)
        return result;
    return ParseChildren(r, &technique->passes, &technique->pass_count, passCount, c, ParsePass,
                         "Failed to parse pass %u\n");
}

// Size (4), size bytes, then padding up to a multiple of 4.
uint32_t ReadDataBlock(Reader& r, EffectObject* object, Cursor& c)
{
    if (object->size != 0 || object->data)
    {
        EFFECT_ERROR("Object already initialized!\n");
        MyHeapFree(0, object->data);
        object->data = nullptr;
        object->size = 0;
    }
    uint32_t size = 0;
    uint32_t result = ReadWord(r, c, size);
    if (result != EFFECT_OK || size == 0)
        return result;
    if (size > Remaining(r, c))
    {
        EFFECT_ERROR("Data block of %u bytes at offset %u runs past the end of the effect data\n", size,
                     Printable(c.pos));
        return EFFECT_E_FAIL;
    }
    void* data = nullptr;
    result = Allocate(r, &data, 0, static_cast<uint64_t>(size) + 1);
    if (result == EFFECT_E_OUTOFMEMORY)
        EFFECT_ERROR("Failed to allocate object memory.\n");
    if (result != EFFECT_OK)
        return result;
    std::memcpy(data, r.base + c.pos, size);
    static_cast<uint8_t*>(data)[size] = 0;
    object->data = data;
    object->size = size;
    c.pos += (static_cast<uint64_t>(size) + 3) & ~3ull;
    return EFFECT_OK;
}

// Gives the string parameter that named the object its own copy of the text.
uint32_t StoreString(Reader& r, EffectObject* object)
{
    EffectParameter* p = object->parameter;
    if (!p || !IsSlotLeaf(p) || !p->data)
        return EFFECT_OK; // no parameter names this object
    void** slot = static_cast<void**>(p->data);
    if (*slot)
        EFFECT_ERROR("Parameter data already allocated.\n");
    if (p->type != D3DXPT_STRING)
        return EFFECT_OK;
    void* text = nullptr;
    uint32_t result = Allocate(r, &text, 0, static_cast<uint64_t>(object->size) + 1);
    if (result == EFFECT_E_OUTOFMEMORY)
        EFFECT_ERROR("Out of memory.\n");
    if (result != EFFECT_OK)
        return result;
    std::memcpy(text, object->data, object->size);
    static_cast<uint8_t*>(text)[object->size] = 0;
    MyHeapFree(0, *slot);
    *slot = text;
    return EFFECT_OK;
}

uint32_t ResolveName(Reader& r, EffectState* state, const char* name)
{
    EffectParameter* found = name ? ParsedEffectFindParameter(r.effect, nullptr, name, &r.walk) : nullptr;
    if (r.walk.exhausted)
    {
        EFFECT_ERROR("Effect asks for more name lookups than a file of %u bytes may\n", Printable(r.length + 8));
        return EFFECT_E_FAIL;
    }
    if (!found)
    {
        EFFECT_ERROR("Referenced parameter %s not found.\n", name ? name : "(null)");
        return EFFECT_E_NOTFOUND;
    }
    state->parameter.referenced = found;
    return EFFECT_OK;
}

uint32_t ParseResource(Reader& r, Cursor& c)
{
    ParsedEffect* e = r.effect;
    uint32_t techniqueIndex = 0, index = 0, elementIndex = 0, stateIndex = 0, usage = 0;
    uint32_t result = EFFECT_OK;
    if ((result = ReadWord(r, c, techniqueIndex)) != EFFECT_OK || (result = ReadWord(r, c, index)) != EFFECT_OK ||
        (result = ReadWord(r, c, elementIndex)) != EFFECT_OK || (result = ReadWord(r, c, stateIndex)) != EFFECT_OK ||
        (result = ReadWord(r, c, usage)) != EFFECT_OK)
        return result;

    EffectState* state = nullptr;
    if (techniqueIndex == kNoIndex)
    {
        if (index >= e->parameter_count || !e->parameters)
        {
            EFFECT_ERROR("Index out of bounds: index %u >= parameter_count %u\n", index, e->parameter_count);
            return EFFECT_E_FAIL;
        }
        EffectParameter* p = &e->parameters[index];
        if (elementIndex != kNoIndex && p->element_count != 0)
        {
            if (elementIndex >= p->element_count || !p->members)
            {
                EFFECT_ERROR("Index out of bounds: element_index %u >= element_count %u\n", elementIndex,
                             p->element_count);
                return EFFECT_E_FAIL;
            }
            p = &p->members[elementIndex];
        }
        if (p->class_ != D3DXPC_OBJECT || !EffectIsSamplerType(p->type) || p->element_count != 0 || !p->data)
        {
            EFFECT_ERROR("Resource names parameter %u, which is no sampler\n", index);
            return EFFECT_E_FAIL;
        }
        EffectSampler* sampler = static_cast<EffectSampler*>(p->data);
        if (stateIndex >= sampler->state_count || !sampler->states)
        {
            EFFECT_ERROR("Index out of bounds: state_index %u >= state_count %u\n", stateIndex, sampler->state_count);
            return EFFECT_E_FAIL;
        }
        state = &sampler->states[stateIndex];
    }
    else
    {
        if (techniqueIndex >= e->technique_count || !e->techniques)
        {
            EFFECT_ERROR("Index out of bounds: technique_index %u >= technique_count %u\n", techniqueIndex,
                         e->technique_count);
            return EFFECT_E_FAIL;
        }
        EffectTechnique* technique = &e->techniques[techniqueIndex];
        if (index >= technique->pass_count || !technique->passes)
        {
            EFFECT_ERROR("Index out of bounds: index %u >= pass_count %u\n", index, technique->pass_count);
            return EFFECT_E_FAIL;
        }
        EffectPass* pass = &technique->passes[index];
        if (stateIndex >= pass->state_count || !pass->states)
        {
            EFFECT_ERROR("Index out of bounds: state_index %u >= state_count %u\n", stateIndex, pass->state_count);
            return EFFECT_E_FAIL;
        }
        state = &pass->states[stateIndex];
    }

    const uint32_t objectId = state->parameter.object_id;
    if (objectId >= e->object_count || !e->objects)
    {
        EFFECT_ERROR("Object id %u is not below the object count %u\n", objectId, e->object_count);
        return EFFECT_E_FAIL;
    }
    EffectObject* object = &e->objects[objectId];

    switch (usage)
    {
    case 0:
        switch (state->parameter.type)
        {
        case D3DXPT_BOOL:
        case D3DXPT_INT:
        case D3DXPT_FLOAT:
        case D3DXPT_STRING:
            state->state_type = STATE_DATA;
            return ReadDataBlock(r, object, c);
        case D3DXPT_PIXELSHADER:
        case D3DXPT_VERTEXSHADER:
            state->state_type = STATE_CONSTANT;
            if ((result = ReadDataBlock(r, object, c)) != EFFECT_OK)
                return result;
            return object->data ? StoreString(r, object) : EFFECT_OK;
        default:
            EFFECT_ERROR("Unhandled type %s\n", EffectTypeName(state->parameter.type));
            return EFFECT_E_FAIL;
        }
    case 1:
        state->state_type = STATE_PARAMETER;
        if ((result = ReadDataBlock(r, object, c)) != EFFECT_OK)
            return result;
        return ResolveName(r, state, static_cast<const char*>(object->data));
    case 2:
        state->state_type = STATE_PRESHADER;
        if ((result = ReadDataBlock(r, object, c)) != EFFECT_OK)
            return result;
        // A word, then the name of the parameter the preshader reads.
        if (object->size < 4)
        {
            EFFECT_ERROR("Preshader block of %u bytes holds no parameter name\n", object->size);
            return EFFECT_E_FAIL;
        }
        if ((result = ResolveName(r, state, static_cast<const char*>(object->data) + 4)) != EFFECT_OK)
            return result;
        EFFECT_ERROR("Parse preshader.\n");
        return EFFECT_OK;
    default:
        EFFECT_ERROR("Unknown usage %x\n", usage);
        return EFFECT_E_FAIL;
    }
}

uint32_t ParseBodyRecords(Reader& r, Cursor& c)
{
    ParsedEffect* e = r.effect;
    uint32_t reserved = 0;
    uint32_t result = EFFECT_OK;
    if ((result = ReadWord(r, c, e->parameter_count)) != EFFECT_OK ||
        (result = ReadWord(r, c, e->technique_count)) != EFFECT_OK ||
        (result = ReadWord(r, c, reserved)) != EFFECT_OK || (result = ReadWord(r, c, e->object_count)) != EFFECT_OK)
        return result;

    // Every object is named by an id word somewhere in the file.
    if (e->object_count > r.length / 4)
    {
        EFFECT_ERROR("Object count %u does not fit in the %u bytes of effect data\n", e->object_count,
                     Printable(r.length));
        return EFFECT_E_FAIL;
    }
    if (e->object_count != 0 && (result = AllocateRecords(r, &e->objects, e->object_count)) != EFFECT_OK)
        return result;

    if (e->parameter_count != 0)
    {
        if ((result = CheckRecords(r, c, static_cast<uint64_t>(e->parameter_count) * kParameterRecordBytes, "Parameter",
                                   e->parameter_count)) != EFFECT_OK ||
            (result = AllocateRecords(r, &e->parameters, e->parameter_count)) != EFFECT_OK)
            return result;
        for (uint32_t i = 0; i < e->parameter_count; ++i)
        {
            if ((result = Register(r, &e->parameters[i])) != EFFECT_OK)
                return result;
            if ((result = ParseParameter(r, &e->parameters[i], c)) != EFFECT_OK)
            {
                EffectLogWarning("Failed to parse parameter %u\n", i);
                return result;
            }
        }
    }

    if (e->technique_count != 0)
    {
        if ((result = CheckRecords(r, c, static_cast<uint64_t>(e->technique_count) * kTechniqueRecordBytes, "Technique",
                                   e->technique_count)) != EFFECT_OK ||
            (result = AllocateRecords(r, &e->techniques, e->technique_count)) != EFFECT_OK)
            return result;
        for (uint32_t i = 0; i < e->technique_count; ++i)
        {
            if ((result = ParseTechnique(r, &e->techniques[i], c)) != EFFECT_OK)
            {
                EffectLogWarning("Failed to parse technique %u\n", i);
                return result;
            }
        }
    }

    // The table no longer moves: the handles are final.
    for (uint32_t i = 0; i < e->handle_count; ++i)
        e->handles[i]->handle = &e->handles[i];

    uint32_t stringCount = 0, resourceCount = 0;
    if ((result = ReadWord(r, c, stringCount)) != EFFECT_OK || (result = ReadWord(r, c, resourceCount)) != EFFECT_OK)
        return result;
    if ((result = CheckRecords(r, c,
                               static_cast<uint64_t>(stringCount) * kObjectRecordBytes +
                                   static_cast<uint64_t>(resourceCount) * kResourceRecordBytes,
                               "Object and resource", stringCount)) != EFFECT_OK)
        return result;

    for (uint32_t i = 0; i < stringCount; ++i)
    {
        uint32_t id = 0;
        if ((result = ReadWord(r, c, id)) != EFFECT_OK)
            return result;
        if (id >= e->object_count)
        {
            EFFECT_ERROR("Object id %u is not below the object count %u\n", id, e->object_count);
            return EFFECT_E_FAIL;
        }
        if ((result = ReadDataBlock(r, &e->objects[id], c)) != EFFECT_OK)
            return result;
        if (e->objects[id].data && (result = StoreString(r, &e->objects[id])) != EFFECT_OK)
            return result;
    }

    for (uint32_t i = 0; i < resourceCount; ++i)
    {
        if ((result = ParseResource(r, c)) != EFFECT_OK)
        {
            EffectLogWarning("Failed to parse resource %u\n", i);
            return result;
        }
    }
    return EFFECT_OK;
}

uint32_t ParseBody(Reader& r, Cursor& c)
{
    const uint32_t result = ParseBodyRecords(r, c);
    if (result != EFFECT_OK)
    {
        ParsedEffectFreeContents(r.effect);
        // The handle table stays, but none of its entries is alive.
        r.effect->handle_count = 0;
    }
    return result;
}

} // namespace

CD3D9ParseEffect::CD3D9ParseEffect()
{
    std::memset(&m_effect, 0, sizeof(m_effect));
}

CD3D9ParseEffect::~CD3D9ParseEffect()
{
    ParsedEffectRelease(&m_effect);
}

bool CD3D9ParseEffect::Parse(const void* data, uint32_t size)
{
    ParsedEffectRelease(&m_effect);
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    if (!bytes || size < 4 || LoadWord(bytes) != EFFECT_FILE_MAGIC)
    {
        EFFECT_ERROR("parseEffect_notAnEffectsFile");
        return false;
    }
    if (size < 8)
    {
        EFFECT_ERROR("Effect data of %u bytes ends inside its head\n", size);
        EffectLogWarning("Failed to parse effect.\n");
        return false;
    }
    Reader reader{&m_effect,
                  bytes + 8,
                  static_cast<uint64_t>(size) - 8,
                  kMemoryPerFileByte * size + kMemoryAllowance,
                  EffectWalkBudget{kWalkStepsPerFileByte * size + kWalkStepsAllowance, false},
                  0};
    Cursor cursor{LoadWord(bytes + 4)};
    if (ParseBody(reader, cursor) != EFFECT_OK)
    {
        EffectLogWarning("Failed to parse effect.\n");
        return false;
    }
    return true;
}

EffectHandle CD3D9ParseEffect::GetAnnotation(EffectHandle handle, uint32_t index) const
{
    return ParsedEffectGetAnnotation(&m_effect, handle, index);
}

EffectHandle CD3D9ParseEffect::GetAnnotationByName(EffectHandle handle, const char* name) const
{
    return ParsedEffectGetAnnotationByName(&m_effect, handle, name);
}

uint32_t CD3D9ParseEffect::GetDesc(D3DXEFFECT_DESC* desc) const
{
    return ParsedEffectGetDesc(&m_effect, desc);
}

uint32_t CD3D9ParseEffect::GetFunctionDesc(EffectHandle handle, void* desc) const
{
    return ParsedEffectGetFunctionDesc(&m_effect, handle, desc);
}

EffectHandle CD3D9ParseEffect::GetParameter(EffectHandle handle, uint32_t index) const
{
    return ParsedEffectGetParameter(&m_effect, handle, index);
}

EffectHandle CD3D9ParseEffect::GetParameterByName(EffectHandle handle, const char* name) const
{
    return ParsedEffectGetParameterByName(&m_effect, handle, name);
}

EffectHandle CD3D9ParseEffect::GetParameterBySemantic(EffectHandle handle, const char* semantic) const
{
    return ParsedEffectGetParameterBySemantic(&m_effect, handle, semantic);
}

uint32_t CD3D9ParseEffect::GetParameterDesc(EffectHandle handle, D3DXPARAMETER_DESC* desc) const
{
    return ParsedEffectGetParameterDesc(&m_effect, handle, desc);
}

EffectHandle CD3D9ParseEffect::GetParameterElement(EffectHandle handle, uint32_t index) const
{
    return ParsedEffectGetParameterElement(&m_effect, handle, index);
}

EffectHandle CD3D9ParseEffect::GetPass(EffectHandle technique, uint32_t index) const
{
    return ParsedEffectGetPass(&m_effect, technique, index);
}

EffectHandle CD3D9ParseEffect::GetPassByName(EffectHandle technique, const char* name) const
{
    return ParsedEffectGetPassByName(&m_effect, technique, name);
}

uint32_t CD3D9ParseEffect::GetPassDesc(EffectHandle pass, D3DXPASS_DESC* desc) const
{
    return ParsedEffectGetPassDesc(&m_effect, pass, desc);
}

uint32_t CD3D9ParseEffect::GetString(EffectHandle handle, const char** text) const
{
    return ParsedEffectGetString(&m_effect, handle, text);
}

EffectHandle CD3D9ParseEffect::GetTechnique(uint32_t index) const
{
    return ParsedEffectGetTechnique(&m_effect, index);
}

EffectHandle CD3D9ParseEffect::GetTechniqueByName(const char* name) const
{
    return ParsedEffectGetTechniqueByName(&m_effect, name);
}

uint32_t CD3D9ParseEffect::GetTechniqueDesc(EffectHandle technique, D3DXTECHNIQUE_DESC* desc) const
{
    return ParsedEffectGetTechniqueDesc(&m_effect, technique, desc);
}
