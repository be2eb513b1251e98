#include "MemoryBook.h"

#include "vorn_assert.h"

#include <algorithm>
#include <bit>
#include <new>
#include <stdexcept>

namespace {

constexpr uint32_t mostJobs = 1u << 8;
constexpr uint32_t mostModules = 1u << 16;

} // namespace

char MemoryBook::nullAddress = 0;

MemoryBook* MemoryBook::book = nullptr;

MemoryBook& MemoryBook::makeBook()
{
    book = new MemoryBook;
    return *book;
}

MemoryBook::MemoryBook() : jobs(1, nullptr), modules(1, nullptr)
{
    resize(fewestPlaces);
}

uint32_t MemoryBook::open(BlockMap* map)
{
    std::vector<BlockMap*>& kind = map->getModule() != nullptr ? modules : jobs;
    const auto unused = std::find(kind.begin() + 1, kind.end(), nullptr);
    const uint32_t number = static_cast<uint32_t>(unused - kind.begin());
    if (unused != kind.end())
        *unused = map;
    else
        kind.push_back(map);
    VORN_ASSERT(number < (map->getModule() != nullptr ? mostModules : mostJobs));
    return number;
}

void MemoryBook::close(BlockMap* map)
{
    if (!map->empty()) {
        for (Entry& entry : table) {
            if (entry.block == nullptr || !map->lists(entry))
                continue;
            if (map->getModule() != nullptr)
                entry.module = 0;
            else
                entry.job = 0;
        }
        // Leaves out the entries that nobody holds now. Without memory they stay until the next
        // change of size: maps are closed by destructors.
        tryResize(table.size());
    }
    (map->getModule() != nullptr ? modules : jobs)[map->number] = nullptr;
}

// A free place for `address`, which the holders no longer list.
std::size_t MemoryBook::placeFor(void* address, BlockMap* job, BlockMap* module)
{
    const void* block = keyOf(address);
    std::size_t place = home(block);
    while (table[place].block != nullptr && table[place].block != block)
        place = next(place);
    if (table[place].block == nullptr)
        return place;
    visit(address, [=, this](Entry& entry) {
        if (job != nullptr && job->lists(entry))
            removeJob(entry);
        if (module != nullptr && module->lists(entry))
            removeModule(entry);
    });
    return freePlace(block);
}

const MemoryBook::Entry* MemoryBook::find(const BlockMap* map, const void* address) const
{
    const void* block = keyOf(const_cast<void*>(address));
    for (std::size_t i = home(block); table[i].block != nullptr; i = next(i)) {
        if (table[i].block == block && map->lists(table[i]))
            return &table[i];
    }
    return nullptr;
}

std::size_t MemoryBook::freePlace(const void* block) const
{
    std::size_t place = home(block);
    while (table[place].block != nullptr)
        place = next(place);
    return place;
}

void MemoryBook::eraseUnheld(const void* block)
{
    std::size_t i = home(block);
    while (table[i].block != nullptr) {
        const Entry& entry = table[i];
        if (entry.block == block && entry.job == 0 && entry.module == 0)
            erase(i); // another entry may have moved here: look again
        else
            i = next(i);
    }
}

bool MemoryBook::tryResize(std::size_t places)
{
    try {
        resize(places);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void MemoryBook::resize(std::size_t places)
{
    std::vector<Entry> former(places, Entry{});
    former.swap(table);
    shift = 64u - static_cast<unsigned>(std::countr_zero(places));
    mask = places - 1;
    mostUsed = places / 4 * 3;
    used = 0;
    for (const Entry& entry : former) {
        if (entry.block != nullptr && (entry.job != 0 || entry.module != 0)) {
            table[freePlace(entry.block)] = entry;
            ++used;
        }
    }
}

BlockMap::BlockMap(ModuleEntity* owner) : module(owner), number(MemoryBook::instance().open(this))
{
}

BlockMap::~BlockMap()
{
    MemoryBook::instance().close(this);
}

std::size_t BlockMap::count(const void* block) const
{
    return MemoryBook::instance().find(this, block) != nullptr ? 1 : 0;
}

const int& BlockMap::at(const void* block) const
{
    const MemoryBook::Entry* entry = MemoryBook::instance().find(this, block);
    if (entry == nullptr)
        throw std::out_of_range("BlockMap::at");
    return entry->size;
}

BlockMap::const_iterator BlockMap::find(const void* block) const
{
    const MemoryBook::Entry* entry = MemoryBook::instance().find(this, block);
    if (entry == nullptr)
        return end();
    const_iterator found;
    found.owner = this;
    found.blocks = std::make_shared<const const_iterator::Blocks>(
        const_iterator::Blocks{{MemoryBook::addressOf(*entry), entry->size}});
    found.position = found.blocks->begin();
    return found;
}

BlockMap::const_iterator BlockMap::begin() const
{
    const_iterator first;
    first.owner = this;
    first.complete = true;
    if (!empty()) {
        first.blocks = snapshot();
        first.position = first.blocks->begin();
    }
    return first;
}

BlockMap::const_iterator BlockMap::end() const
{
    return const_iterator();
}

std::shared_ptr<const BlockMap::const_iterator::Blocks> BlockMap::snapshot() const
{
    const_iterator::Blocks blocks;
    for (const MemoryBook::Entry& entry : MemoryBook::instance().entries()) {
        if (entry.block != nullptr && lists(entry))
            blocks.emplace(MemoryBook::addressOf(entry), entry.size);
    }
    return std::make_shared<const const_iterator::Blocks>(std::move(blocks));
}

BlockMap::const_iterator& BlockMap::const_iterator::operator++()
{
    if (!complete) {
        const void* here = position->first;
        blocks = owner->snapshot();
        position = blocks->upper_bound(const_cast<void*>(here));
        complete = true;
    } else {
        ++position;
    }
    if (position == blocks->end())
        blocks.reset();
    return *this;
}

bool BlockMap::const_iterator::operator==(const const_iterator& other) const
{
    if (blocks == nullptr || other.blocks == nullptr)
        return blocks == other.blocks;
    return position->first == other.position->first;
}
