#include "codec/colour_index.h"

namespace {

// Colour word -> index: open addressing over a power-of-two table.
class ColourIndex {
public:
    ColourIndex() { rehash(1024); }

    // The index of key, or next when it is new (then *added is set).
    unsigned lookup(uint32_t key, unsigned next, bool* added) {
        if ((count + 1) * 2 > slots.size) rehash(slots.size * 2);
        int i = slotOf(key);
        while (slots[i].index != 0) {
            if (slots[i].key == key) return slots[i].index - 1;
            i = (i + 1) & (slots.size - 1);
        }
        slots[i] = Slot{key, next + 1};
        count++;
        *added = true;
        return next;
    }

private:
    struct Slot {
        uint32_t key;
        unsigned index;  // index + 1; 0 marks a free slot
    };
    vec<Slot> slots;
    int count = 0;
    int shift = 0;

    int slotOf(uint32_t key) const { return (int)((key * 0x9E3779B1u) >> shift); }

    void rehash(int size) {
        vec<Slot> old;
        old.swap(slots);
        slots.resize(size);
        shift = 32 - __builtin_ctz((unsigned)size);
        for (const Slot& s : old) {
            if (s.index == 0) continue;
            int i = slotOf(s.key);
            while (slots[i].index != 0) i = (i + 1) & (size - 1);
            slots[i] = s;
        }
    }
};

}  // namespace

void indexColours(const Bitmap& bitmap, vec<int>& ids, vec<Color>& colours) {
    ColourIndex map;
    bool added = false;
    map.lookup(colorKey(color_SeeThrough), 0, &added);
    colours.clear();
    colours.push(color_SeeThrough);
    int count = bitmap.width > 0 && bitmap.height > 0 ? bitmap.width * bitmap.height : 0;
    ids.assignZero(count);
    uint32_t last_key = colorKey(color_SeeThrough);
    int last_id = 0;
    for (int i = 0; i < count; i++) {
        uint32_t key = colorKey(bitmap.data[i]);
        if (key != last_key) {
            added = false;
            last_id = (int)map.lookup(key, (unsigned)colours.size, &added);
            last_key = key;
            if (added) colours.push(bitmap.data[i]);
        }
        ids[i] = last_id;
    }
}

void indexColours(const Bitmap& bitmap, vec<int>& ids, vec<Color>& colours, vec<int>& counts) {
    indexColours(bitmap, ids, colours);
    counts.assignZero(colours.size);
    for (int id : ids) counts[id]++;
}
