#include "BlockMap.h"

#include "private/BlockTable.h"

#include <stdexcept>
#include <utility>

BlockMap::BlockMap(ModuleEntity* owner) : module(owner), number(BlockTable::instance().open(this))
{
}

BlockMap::~BlockMap()
{
    BlockTable::instance().close(this);
}

std::size_t BlockMap::count(const void* block) const
{
    return BlockTable::instance().find(this, block) != nullptr ? 1 : 0;
}

const int& BlockMap::at(const void* block) const
{
    const BlockTable::Entry* entry = BlockTable::instance().find(this, block);
    if (entry == nullptr)
        throw std::out_of_range("BlockMap::at");
    return entry->size;
}

BlockMap::const_iterator BlockMap::find(const void* block) const
{
    const BlockTable::Entry* entry = BlockTable::instance().find(this, block);
    if (entry == nullptr)
        return end();
    const_iterator found;
    found.owner = this;
    found.blocks = std::make_shared<const const_iterator::Blocks>(
        const_iterator::Blocks{{BlockTable::addressOf(*entry), entry->size}});
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
    BlockTable::instance().forEach(this, [&](const BlockTable::Entry& entry) {
        blocks.emplace(BlockTable::addressOf(entry), entry.size);
    });
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
