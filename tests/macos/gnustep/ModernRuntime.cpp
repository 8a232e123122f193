// Lets clang's modern Objective-C ABI (-fobjc-runtime=gnustep-1.6: ARC, weak, synthesised
// properties, non-fragile instance variables, subscripts, C++ exceptions) run on GCC's libobjc 4,
// which Debian's GNUstep is built with. Only for running tests on Linux; nothing of it goes to a
// Mac. Link with -Wl,--wrap=__objc_exec_class.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <unwind.h>

extern "C" {

struct Object;
using Class = struct ClassData*;
using Id = Object*;
using Sel = struct SelData*;
using Imp = void (*)();
struct Object {
  Class isa;
};
struct IvarList {
  int count;
  struct {
    const char* name;
    const char* type;
    int offset;
  } list[1];
};
struct ProtocolList {
  ProtocolList* next;
  std::size_t count;
  struct Protocol* list[1];
};
struct Protocol {
  std::uintptr_t version;
  const char* name;
  ProtocolList* protocols;
};
struct ClassData {
  Class isa;
  const char* superName;
  const char* name;
  long version;
  unsigned long info;
  long instanceSize;
  IvarList* ivars;
  void* methods;
  void* dtable;
  void* subclasses;
  void* sibling;
  ProtocolList* protocols;
  void* gc;
  long abi;
  int** ivarOffsets;
  void* properties;
};
struct Category {
  const char* name;
  const char* className;
  void* instance;
  void* cls;
  ProtocolList* protocols;
};
struct Symtab {
  unsigned long refCount;
  void* refs;
  unsigned short classes, categories;
  void* defs[1];
};
struct Module {
  unsigned long version, size;
  const char* name;
  Symtab* symtab;
};
struct Super {
  Id self;
  Class cls;
};
struct Slot {
  Class owner, cachedFor;
  const char* types;
  int version;
  Imp method;
};

Imp objc_msg_lookup(Id, Sel);
Imp objc_msg_lookup_super(Super*, Sel);
Id objc_getClass(const char*);
std::size_t class_getInstanceSize(Class);
Sel sel_registerName(const char*);
void* class_getInstanceMethod(Class, Sel);
Imp method_setImplementation(void*, Imp);
void __real___objc_exec_class(Module*);

static void fix(ProtocolList* list) {
  for (; list != nullptr; list = list->next) {
    for (std::size_t i = 0; i < list->count; ++i) {
      if (list->list[i] != nullptr && list->list[i]->version == 3) {
        list->list[i]->version = 2;
        fix(list->list[i]->protocols);
      }
    }
  }
}

// Our classes by name, and those among them whose instance variables have no place yet.
static std::map<std::string, Class>& ourClasses() {
  static auto& classes = *new std::map<std::string, Class>;
  return classes;
}
static std::set<Class>& unplaced() {
  static auto& classes = *new std::set<Class>;
  return classes;
}

// Instance variables follow those of the superclass as it really is, which may be ours or, for a
// while, unknown.
static void place(Class cls) {
  const auto ours = ourClasses().find(cls->superName);
  if (ours != ourClasses().end() && unplaced().contains(ours->second)) {
    place(ours->second);
  }
  const auto super = ours != ourClasses().end()
                         ? ours->second
                         : reinterpret_cast<Class>(objc_getClass(cls->superName));
  if (super == nullptr || unplaced().contains(super)) {
    return;
  }
  unplaced().erase(cls);
  const auto base = ours != ourClasses().end() ? super->instanceSize
                                               : static_cast<long>(class_getInstanceSize(super));
  const long start = (base + 15) / 16 * 16;
  cls->instanceSize = start - cls->instanceSize;
  if (cls->ivars == nullptr) {
    if (cls->instanceSize == start) {
      cls->instanceSize = base;
    }
    return;
  }
  for (int i = 0; i < cls->ivars->count; ++i) {
    cls->ivars->list[i].offset += static_cast<int>(start);
    if (cls->ivarOffsets != nullptr) {
      *cls->ivarOffsets[i] = cls->ivars->list[i].offset;
    }
  }
}

void __wrap___objc_exec_class(Module* module) {
  if (module->version > 8) {
    module->version = 8;
    module->size = sizeof(Module);
    Symtab& table = *module->symtab;
    for (unsigned i = 0; i < table.classes; ++i) {
      const auto cls = static_cast<Class>(table.defs[i]);
      fix(cls->protocols);
      ourClasses()[cls->name] = cls;
      if (cls->instanceSize <= 0 && cls->superName != nullptr) {
        unplaced().insert(cls);
      }
    }
    for (unsigned i = 0; i < table.categories; ++i) {
      fix(static_cast<Category*>(table.defs[table.classes + i])->protocols);
    }
    for (const Class cls : std::set(unplaced())) {
      if (unplaced().contains(cls)) {
        place(cls);
      }
    }
  }
  __real___objc_exec_class(module);
}

static Slot* slotFor(Imp imp) {
  static std::mutex mutex;
  static auto& slots = *new std::unordered_map<Imp, Slot*>;
  const std::lock_guard lock(mutex);
  Slot*& slot = slots[imp];
  if (slot == nullptr) {
    slot = new Slot{nullptr, nullptr, nullptr, 0, imp};
  }
  return slot;
}
Slot* objc_msg_lookup_sender(Id* receiver, Sel sel, Id) {
  return slotFor(objc_msg_lookup(*receiver, sel));
}
Slot* objc_slot_lookup_super(Super* super, Sel sel) {
  return slotFor(objc_msg_lookup_super(super, sel));
}

// Both C++ and foreign exceptions run cleanups; C++ handlers work; @catch does not (see README.md).
_Unwind_Reason_Code __gxx_personality_v0(int, _Unwind_Action, _Unwind_Exception_Class,
                                         _Unwind_Exception*, _Unwind_Context*);
_Unwind_Reason_Code __gnustep_objcxx_personality_v0(int v, _Unwind_Action a,
                                                    _Unwind_Exception_Class c, _Unwind_Exception* e,
                                                    _Unwind_Context* x) {
  return __gxx_personality_v0(v, a, c, e, x);
}

// Automatic reference counting, on retain, release and autorelease of NSObject.
static Id send(Id object, Sel sel) {
  return reinterpret_cast<Id (*)(Id, Sel)>(objc_msg_lookup(object, sel))(object, sel);
}
// A block on the stack is not counted: what keeps one copies it. (GNUstep sends it "retain" and
// means a copy.)
extern ClassData _NSConcreteStackBlock;  // in Blocks.mm
static bool isCounted(Id o) {
  return o != nullptr && o->isa != &_NSConcreteStackBlock;
}
Id objc_retain(Id o) {
  static const Sel s = sel_registerName("retain");
  return isCounted(o) ? send(o, s) : o;
}
void objc_release(Id o) {
  static const Sel s = sel_registerName("release");
  if (isCounted(o)) {
    send(o, s);
  }
}
Id objc_autorelease(Id o) {
  static const Sel s = sel_registerName("autorelease");
  return o != nullptr ? send(o, s) : o;
}
Id objc_retainAutorelease(Id o) {
  return objc_autorelease(objc_retain(o));
}
Id objc_retainAutoreleaseReturnValue(Id o) {
  return objc_retainAutorelease(o);
}
Id objc_autoreleaseReturnValue(Id o) {
  return objc_autorelease(o);
}
Id objc_retainAutoreleasedReturnValue(Id o) {
  return objc_retain(o);
}
Id objc_unsafeClaimAutoreleasedReturnValue(Id o) {
  return o;
}
Id _Block_copy(Id);
Id objc_retainBlock(Id b) {
  return _Block_copy(b);
}
void objc_storeStrong(Id* at, Id value) {
  Id old = *at;
  objc_retain(value);
  *at = value;
  objc_release(old);
}
void* objc_autoreleasePoolPush() {
  static const Sel s = sel_registerName("new");
  return send(objc_getClass("NSAutoreleasePool"), s);
}
void objc_autoreleasePoolPop(void* pool) {
  static const Sel s = sel_registerName("drain");
  send(static_cast<Id>(pool), s);
}

// Weak references and associated objects: tables of both, looked through by NSObject's dealloc.
static std::recursive_mutex weakMutex;
static auto& weakPlaces = *new std::unordered_map<Id, std::unordered_set<Id*>>;
static auto& associations = *new std::unordered_map<Id, std::unordered_map<const void*, Id>>;
static void (*realDealloc)(Id, Sel);
static void dealloc(Id self, Sel sel) {
  std::unordered_map<const void*, Id> associated;
  {
    const std::lock_guard lock(weakMutex);
    if (const auto found = weakPlaces.find(self); found != weakPlaces.end()) {
      for (Id* place : found->second) {
        *place = nullptr;
      }
      weakPlaces.erase(found);
    }
    if (const auto found = associations.find(self); found != associations.end()) {
      associated.swap(found->second);
      associations.erase(found);
    }
  }
  for (const auto& [key, value] : associated) {
    objc_release(value);
  }
  realDealloc(self, sel);
}
static void watchDealloc() {
  if (realDealloc == nullptr) {
    realDealloc = reinterpret_cast<void (*)(Id, Sel)>(method_setImplementation(
        class_getInstanceMethod(reinterpret_cast<Class>(objc_getClass("NSObject")),
                                sel_registerName("dealloc")),
        reinterpret_cast<Imp>(dealloc)));
  }
}
Id objc_storeWeak(Id* at, Id value) {
  const std::lock_guard lock(weakMutex);
  watchDealloc();
  if (*at != nullptr) {
    weakPlaces[*at].erase(at);
  }
  *at = value;
  if (value != nullptr) {
    weakPlaces[value].insert(at);
  }
  return value;
}
// Kept by retaining, whatever the policy.
void objc_setAssociatedObject(Id object, const void* key, Id value, std::uintptr_t) {
  objc_retain(value);
  Id before = nullptr;
  {
    const std::lock_guard lock(weakMutex);
    watchDealloc();
    before = std::exchange(associations[object][key], value);
  }
  objc_release(before);
}
Id objc_getAssociatedObject(Id object, const void* key) {
  const std::lock_guard lock(weakMutex);
  const auto found = associations.find(object);
  return found == associations.end() ? nullptr : found->second[key];
}
Id objc_initWeak(Id* at, Id value) {
  *at = nullptr;
  return objc_storeWeak(at, value);
}
void objc_destroyWeak(Id* at) {
  objc_storeWeak(at, nullptr);
}
Id objc_loadWeakRetained(Id* at) {
  const std::lock_guard lock(weakMutex);
  return objc_retain(*at);
}
Id objc_loadWeak(Id* at) {
  return objc_autorelease(objc_loadWeakRetained(at));
}
void objc_copyWeak(Id* to, Id* from) {
  const std::lock_guard lock(weakMutex);
  objc_initWeak(to, *from);
}
void objc_moveWeak(Id* to, Id* from) {
  const std::lock_guard lock(weakMutex);
  objc_initWeak(to, *from);
  objc_destroyWeak(from);
}

// Blocks, by the published ABI, as objects of our own class, so that retain and release work on
// them.
struct BlockDescriptor {
  unsigned long reserved, size;
  void (*copy)(void*, const void*);
  void (*dispose)(const void*);
};
struct Block {
  Class isa;
  int flags;
  int references;
  Imp invoke;
  BlockDescriptor* descriptor;
};
struct ByRef {
  void* isa;
  ByRef* forwarding;
  int flags;
  int size;
  void (*keep)(ByRef*, ByRef*);
  void (*destroy)(ByRef*);
};
extern ClassData _NSConcreteMallocBlock;  // in Blocks.mm
enum { hasCopy = 1 << 25, isGlobal = 1 << 28, onHeap = 1 << 24 };
Id _Block_copy(Id object) {
  const auto block = reinterpret_cast<Block*>(object);
  if (block == nullptr || (block->flags & isGlobal) != 0) {
    return object;
  }
  if ((block->flags & onHeap) != 0) {
    __atomic_add_fetch(&block->references, 1, __ATOMIC_SEQ_CST);
    return object;
  }
  const auto copy = static_cast<Block*>(std::malloc(block->descriptor->size));
  std::memcpy(copy, block, block->descriptor->size);
  copy->isa = &_NSConcreteMallocBlock;
  copy->flags |= onHeap;
  copy->references = 1;
  if ((copy->flags & hasCopy) != 0) {
    copy->descriptor->copy(copy, block);
  }
  return reinterpret_cast<Id>(copy);
}
void _Block_release(Id object) {
  const auto block = reinterpret_cast<Block*>(object);
  if (block == nullptr || (block->flags & onHeap) == 0 ||
      __atomic_sub_fetch(&block->references, 1, __ATOMIC_SEQ_CST) > 0) {
    return;
  }
  if ((block->flags & hasCopy) != 0) {
    block->descriptor->dispose(block);
  }
  std::free(block);
}
void _Block_object_assign(void* to, const void* from, int kind) {
  const auto target = static_cast<void**>(to);
  const auto object = static_cast<Id>(const_cast<void*>(from));
  if ((kind & 128) != 0) {
    *target = object;
    return;
  }
  if ((kind & 8) != 0) {
    const auto source = reinterpret_cast<ByRef*>(object);
    if ((source->forwarding->flags & onHeap) == 0) {
      const auto copy = static_cast<ByRef*>(std::calloc(1, static_cast<std::size_t>(source->size)));
      std::memcpy(copy, source, static_cast<std::size_t>(source->size));
      copy->flags = (source->flags & ~0xffff) | onHeap | 2;
      copy->forwarding = source->forwarding = copy;
      if ((source->flags & hasCopy) != 0) {
        copy->keep(copy, source);
      }
    } else {
      __atomic_add_fetch(&source->forwarding->flags, 1, __ATOMIC_SEQ_CST);
    }
    *target = source->forwarding;
  } else {
    *target = (kind & 7) == 7 ? _Block_copy(object) : objc_retain(object);
  }
}
void _Block_object_dispose(const void* from, int kind) {
  const auto object = static_cast<Id>(const_cast<void*>(from));
  if ((kind & 128) != 0) {
    return;
  }
  if ((kind & 8) != 0) {
    ByRef* const held = reinterpret_cast<ByRef*>(object)->forwarding;
    if ((held->flags & onHeap) != 0 &&
        (__atomic_sub_fetch(&held->flags, 1, __ATOMIC_SEQ_CST) & 0xffff) == 0) {
      if ((held->flags & hasCopy) != 0) {
        held->destroy(held);
      }
      std::free(held);
    }
  } else if ((kind & 7) == 7) {
    _Block_release(object);
  } else {
    objc_release(object);
  }
}
}
