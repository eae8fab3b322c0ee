#include "codec/huffman.h"

namespace {

// A heap entry: a weight and either a node index or ~symbol.
struct Weighted {
    int weight;
    int id;
};

// Plain 32-bit wrap-around addition without signed overflow.
int addWeights(int a, int b) { return (int)((unsigned)a + (unsigned)b); }

// Appends e and lets it rise while it is strictly lighter than its parent.
void heapInsert(vec<Weighted>& heap, Weighted e) {
    int i = heap.size;
    heap.push(e);
    while (i > 0) {
        int parent = (i - 1) / 2;
        if (!(e.weight < heap[parent].weight)) break;
        heap[i] = heap[parent];
        i = parent;
    }
    heap[i] = e;
}

// Takes the top out: the last entry sinks from the root, preferring the left child on equal
// children and stopping on equal weight. The child is chosen without a branch: which one is
// lighter is as good as random.
Weighted heapRemoveTop(vec<Weighted>& heap) {
    Weighted top = heap[0];
    Weighted last = heap[--heap.size];
    int n = heap.size;
    if (n == 0) return top;
    Weighted* h = heap.data;
    int i = 0;
    for (;;) {
        int left = 2 * i + 1;
        if (left >= n) break;
        int child = left;
        if (left + 1 < n) child += h[left + 1].weight < h[left].weight;
        if (last.weight <= h[child].weight) break;
        h[i] = h[child];
        i = child;
    }
    h[i] = last;
    return top;
}

void storeCode(vec<Huff>& codes, int symbol, Huff code) {
    if (codes.size <= symbol) codes.resize(symbol + 1);
    codes[symbol] = code;
}

}  // namespace

void genCodes(Huff prefix, int node, vec<Pair<int, int> >& tree, vec<Huff>& codes) {
    // Depth first, first child before second, with an explicit stack: trees built from
    // hostile frequency lists can be as deep as they have symbols.
    struct Pending {
        Huff code;
        int node;
    };
    vec<Pending> stack;
    stack.push(Pending{prefix, node});
    while (stack.size > 0) {
        Pending p = stack[--stack.size];
        if (p.node < 0) {
            storeCode(codes, ~p.node, p.code);
            continue;
        }
        Huff second = {p.code.length + 1, p.code.code | codeBit(p.code.length)};
        Huff first = {p.code.length + 1, p.code.code};
        Pair<int, int> children = tree[p.node];
        stack.push(Pending{second, children.second});
        stack.push(Pending{first, children.first});
    }
}

void computeHuffcodes(const vec<int>& freqs, vec<Huff>& codes, vec<Pair<int, int> >& tree) {
    vec<Weighted> heap;
    heap.reserve(freqs.size);
    for (int s = 0; s < freqs.size; s++) heapInsert(heap, Weighted{freqs[s], ~s});
    while (heap.size >= 2) {
        Weighted a = heapRemoveTop(heap);
        Weighted b = heapRemoveTop(heap);
        int k = tree.size;
        tree.push(Pair<int, int>{a.id, b.id});
        heapInsert(heap, Weighted{addWeights(a.weight, b.weight), k});
    }
    genCodes(Huff{0, 0}, tree.size - 1, tree, codes);
}
