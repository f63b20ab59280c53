#include "modelio/KvoObjReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// The reader works on whitespace-separated tokens and decides by a token's
// first character, the way the OBJ files of the photogrammetry tools that feed
// this program have always been read: stray tokens are passed over, numbers may
// run on past a line's end, a face's first corner fixes the form of the others.
// It scans the file in memory without copying tokens, so that a file of
// millions of faces reads at the speed of the disk cache.

namespace kvo {

namespace {

struct SpaceTable {
    bool t[256] = {};
    constexpr SpaceTable() : t()
    {
        t[unsigned(' ')] = t[unsigned('\t')] = t[unsigned('\n')] = t[unsigned('\v')] = t[unsigned('\f')] =
            t[unsigned('\r')] = true;
    }
};
constexpr SpaceTable kSpace;

inline bool isSpace(char c)
{
    return kSpace.t[static_cast<unsigned char>(c)];
}

// Face forms, as the first corner decides them.
enum class Form { V, VT, VTN, VN };

constexpr qint64 kMaxMtlBytes = 256ll << 20;

constexpr long long kMissing = std::numeric_limits<long long>::min();

class Scanner {
public:
    Scanner(const char* begin, const char* end) : m_p(begin), m_end(end) {}

    const char* pos() const { return m_p; }
    bool atEnd() const { return m_p >= m_end; }

    void skipSpace()
    {
        while (m_p < m_end && isSpace(*m_p))
            ++m_p;
    }

    // The next whitespace-separated word; false at the end.
    bool token(const char*& b, const char*& e)
    {
        skipSpace();
        if (m_p >= m_end)
            return false;
        b = m_p;
        while (m_p < m_end && !isSpace(*m_p))
            ++m_p;
        e = m_p;
        return true;
    }

    void skipLine()
    {
        const void* nl = std::memchr(m_p, '\n', size_t(m_end - m_p));
        m_p = nl ? static_cast<const char*>(nl) + 1 : m_end;
    }

    // The rest of the current line without its end, and moves past it.
    void readLine(const char*& b, const char*& e)
    {
        b = m_p;
        const void* nl = std::memchr(m_p, '\n', size_t(m_end - m_p));
        e = nl ? static_cast<const char*>(nl) : m_end;
        m_p = nl ? e + 1 : m_end;
    }

    // A number as "%f" reads it: leading whitespace (line ends too) is passed
    // over; on failure nothing more is consumed and out is left alone.
    bool scanFloat(float& out)
    {
        skipSpace();
        const char* s = m_p;
        if (s >= m_end)
            return false;
        bool negative = false;
        if (*s == '+' || *s == '-') {
            negative = *s == '-';
            ++s;
        }
        // from_chars takes no '+' and would read a second sign: both are refused here.
        if (s >= m_end || *s == '+' || *s == '-')
            return false;
        // Plain decimals (up to 15 digits, 8 after the point, no exponent)
        // are the bulk of every file: m / 10^k in double is exact to the last
        // bit float keeps, so rounding it gives what from_chars gives.
        {
            const char* q = s;
            uint64_t m = 0;
            int digits = 0, frac = 0;
            while (q < m_end && unsigned(*q - '0') <= 9) {
                m = m * 10 + unsigned(*q - '0');
                ++digits;
                ++q;
            }
            if (q < m_end && *q == '.') {
                ++q;
                while (q < m_end && unsigned(*q - '0') <= 9) {
                    m = m * 10 + unsigned(*q - '0');
                    ++digits;
                    ++frac;
                    ++q;
                }
            }
            const bool more = q < m_end && (*q == 'e' || *q == 'E' || *q == 'x' || *q == 'X' || *q == 'n' ||
                                            *q == 'N' || *q == 'i' || *q == 'I' || *q == 'p' || *q == 'P');
            if (digits > 0 && digits <= 15 && frac <= 8 && !more) {
                static const double kPow10[9] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8};
                const float v = float(double(m) / kPow10[frac]);
                m_p = q;
                out = negative ? -v : v;
                return true;
            }
        }
        float v = 0;
        auto r = std::from_chars(s, m_end, v, std::chars_format::general);
        if (r.ec == std::errc::invalid_argument)
            return false;
        if (r.ec == std::errc::result_out_of_range) {
            // Too large or too small for a float: what strtof would give.
            const char* ex = s;
            while (ex < r.ptr && *ex != 'e' && *ex != 'E')
                ++ex;
            const bool tiny = ex + 1 < r.ptr && ex[1] == '-';
            v = tiny ? 0.f : std::numeric_limits<float>::infinity();
        }
        m_p = r.ptr;
        out = negative ? -v : v;
        return true;
    }

    // An integer as "%d" reads it; values beyond any index saturate.
    bool scanInt(long long& out)
    {
        skipSpace();
        const char* s = m_p;
        bool negative = false;
        if (s < m_end && (*s == '+' || *s == '-')) {
            negative = *s == '-';
            ++s;
        }
        if (s >= m_end || unsigned(*s - '0') > 9)
            return false;
        long long v = 0;
        while (s < m_end && unsigned(*s - '0') <= 9) {
            if (v < (1LL << 40))
                v = v * 10 + (*s - '0');
            ++s;
        }
        m_p = s;
        out = negative ? -v : v;
        return true;
    }

    bool literal(char c)
    {
        if (m_p < m_end && *m_p == c) {
            ++m_p;
            return true;
        }
        return false;
    }

    // One corner in a face form, as fscanf with that form reads it. Returns the
    // number of fields read; fields not read are left as they are.
    int corner(Form form, long long f[3])
    {
        switch (form) {
        case Form::V: return scanInt(f[0]) ? 1 : 0;
        case Form::VN:
            if (!scanInt(f[0]))
                return 0;
            if (!literal('/') || !literal('/') || !scanInt(f[2]))
                return 1;
            return 2;
        case Form::VT:
        case Form::VTN:
            if (!scanInt(f[0]))
                return 0;
            if (!literal('/') || !scanInt(f[1]))
                return 1;
            if (form == Form::VT)
                return 2;
            if (!literal('/') || !scanInt(f[2]))
                return 2;
            return 3;
        }
        return 0;
    }

private:
    const char* m_p;
    const char* m_end;
};

int fieldsOf(Form form)
{
    switch (form) {
    case Form::V: return 1;
    case Form::VT:
    case Form::VN: return 2;
    case Form::VTN: return 3;
    }
    return 1;
}

// The first corner decides the form of the whole face.
Form decideForm(const char* b, const char* e, long long f[3])
{
    // The usual shapes, told by their digits and slashes alone: runs of
    // digits separated by "/" (or "//" once, second) read the same as below.
    {
        int runs = 0, slashes = 0;
        bool doubled = false, clean = true, inRun = false;
        for (const char* s = b; s < e && clean; ++s) {
            if (unsigned(*s - '0') <= 9) {
                if (!inRun)
                    ++runs;
                inRun = true;
            } else if (*s == '/') {
                if (!inRun && s > b && s[-1] == '/' && !doubled && slashes == 1)
                    doubled = true;
                else if (!inRun)
                    clean = false;
                ++slashes;
                inRun = false;
            } else {
                clean = false;
            }
        }
        clean = clean && inRun && unsigned(*b - '0') <= 9;
        if (clean) {
            Form form = Form::V;
            if (slashes == 0 && runs == 1)
                form = Form::V;
            else if (slashes == 1 && runs == 2)
                form = Form::VT;
            else if (slashes == 2 && runs == 3)
                form = Form::VTN;
            else if (slashes == 2 && runs == 2 && doubled)
                form = Form::VN;
            else
                clean = false;
            if (clean) {
                Scanner(b, e).corner(form, f);
                return form;
            }
        }
    }

    for (const char* s = b; s + 1 < e; ++s)
        if (s[0] == '/' && s[1] == '/') {
            Scanner(b, e).corner(Form::VN, f);
            return Form::VN;
        }
    long long g[3] = {kMissing, kMissing, kMissing};
    if (Scanner(b, e).corner(Form::VTN, g) == 3) {
        std::memcpy(f, g, sizeof(g));
        return Form::VTN;
    }
    g[0] = g[1] = g[2] = kMissing;
    if (Scanner(b, e).corner(Form::VT, g) == 2) {
        std::memcpy(f, g, sizeof(g));
        return Form::VT;
    }
    Scanner(b, e).corner(Form::V, f);
    return Form::V;
}

inline unsigned stored(long long fileIndex)
{
    // File indices are 1-based; what is missing, relative or too large names nothing.
    if (fileIndex < 1 || fileIndex > 0xFFFFFFFFLL)
        return kObjNoIndex;
    return unsigned(fileIndex - 1);
}

// "Take the name": of two words the second wins, of one that word.
QString takeName(const char* b, const char* e)
{
    const char* words[2][2] = {{nullptr, nullptr}, {nullptr, nullptr}};
    int n = 0;
    Scanner s(b, e);
    const char *wb, *we;
    while (n < 2 && s.token(wb, we)) {
        words[n][0] = wb;
        words[n][1] = we;
        ++n;
    }
    if (n == 0)
        return QString();
    const int k = n - 1;
    return QString::fromLocal8Bit(words[k][0], int(words[k][1] - words[k][0]));
}

// Memory of a stretch comes straight from the system and goes straight back:
// a stretch lives only until its elements are in the model, and memory the
// allocator kept for later would count twice at the peak of a big import.
template <class T> struct PageAllocator {
    using value_type = T;
    PageAllocator() = default;
    template <class U> PageAllocator(const PageAllocator<U>&) {}
    T* allocate(size_t n)
    {
        void* p = ::mmap(nullptr, n * sizeof(T), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED)
            throw std::bad_alloc();
        return static_cast<T*>(p);
    }
    void deallocate(T* p, size_t n) { ::munmap(p, n * sizeof(T)); }
    template <class U> bool operator==(const PageAllocator<U>&) const { return true; }
    template <class U> bool operator!=(const PageAllocator<U>&) const { return false; }
};
template <class T> using ChunkVector = std::vector<T, PageAllocator<T>>;

// What one stretch of the file holds: its elements in order, and the
// statements that need the state of everything before them (usemtl, mtllib),
// each with the number of faces that came before it in the stretch.
struct Chunk {
    struct Event {
        bool mtllib = false; // else usemtl
        QString name;
        size_t trianglesBefore = 0;
    };
    ChunkVector<XPnt3f> vertices, normals;
    ChunkVector<XPnt2f> texCoords;
    ChunkVector<QvObjTriangle> triangles;
    std::vector<Event> events;
    const char* firstToken = nullptr; // where the stretch's first statement starts
    const char* nextToken = nullptr;  // where the statement after its last one starts
};

// Reads the statements that start in [from, limit); the last may run on past limit.
void parseChunk(Chunk& c, const char* from, const char* limit, const char* end)
{
    // Room for what the stretch can hold at most, taken once: growing would map
    // and unmap pages while the other readers fault theirs in.
    const size_t bytes = size_t(limit - from);
    c.triangles.reserve(bytes / 12 + 16);
    c.vertices.reserve(bytes / 12 + 16);
    c.texCoords.reserve(bytes / 12 + 16);
    Scanner scan(from, end);
    const char* b = nullptr;
    const char* e = nullptr;
    for (;;) {
        scan.skipSpace();
        if (scan.atEnd() || scan.pos() >= limit)
            break;
        if (!c.firstToken)
            c.firstToken = scan.pos();
        scan.token(b, e);
        const unsigned char ch = static_cast<unsigned char>(*b);
        switch (ch) {
        case '#':
        case 'g': scan.skipLine(); break;
        case 'v': {
            const size_t len = size_t(e - b);
            if (len == 1 || b[1] == 'n') {
                XPnt3f p(0.f, 0.f, 0.f);
                if (scan.scanFloat(p.x) && scan.scanFloat(p.y))
                    scan.scanFloat(p.z);
                (len == 1 ? c.vertices : c.normals).push_back(p);
            } else if (b[1] == 't') {
                XPnt2f p(0.f, 0.f);
                if (scan.scanFloat(p.x))
                    scan.scanFloat(p.y);
                c.texCoords.push_back(p);
            }
            // Any other word starting with v ("vp") is passed over, and so are its numbers.
            break;
        }
        case 'f': {
            if (!scan.token(b, e))
                break;
            long long c0[3] = {kMissing, kMissing, kMissing};
            const Form form = decideForm(b, e, c0);
            const int want = fieldsOf(form);
            long long c1[3] = {kMissing, kMissing, kMissing};
            long long c2[3] = {kMissing, kMissing, kMissing};
            scan.corner(form, c1);
            scan.corner(form, c2);
            for (;;) {
                QvObjTriangle t;
                const long long* corners[3] = {c0, c1, c2};
                for (int k = 0; k < 3; ++k) {
                    t.vindices[k] = stored(corners[k][0]);
                    t.tindices[k] = stored(corners[k][1]);
                    t.nindices[k] = stored(corners[k][2]);
                }
                c.triangles.push_back(t);
                long long next[3] = {kMissing, kMissing, kMissing};
                if (scan.corner(form, next) != want)
                    break;
                std::memcpy(c1, c2, sizeof(c1));
                std::memcpy(c2, next, sizeof(c2));
            }
            break;
        }
        case 'm':
        case 'u': {
            const char *lb, *le;
            scan.readLine(lb, le);
            Chunk::Event ev;
            ev.mtllib = ch == 'm';
            ev.name = takeName(lb, le);
            ev.trianglesBefore = c.triangles.size();
            c.events.push_back(std::move(ev));
            break;
        }
        default:
            if (ch < 35 || ch > 118)
                scan.skipLine();
            break;
        }
    }
    c.nextToken = scan.pos();
    if (!c.firstToken)
        c.firstToken = c.nextToken;
}

// Puts the stretches together in file order and keeps the state that runs
// through the file: materials, groups, the current material and group.
class ObjAssembler {
public:
    explicit ObjAssembler(QvObjModel& model) : m_model(model) {}

    void add(Chunk& c)
    {
        const size_t base = m_triangles;
        size_t done = 0;
        for (Chunk::Event& ev : c.events) {
            faces(base + done, base + ev.trianglesBefore);
            done = ev.trianglesBefore;
            if (ev.mtllib)
                mtllib(ev.name);
            else
                usemtl(ev.name);
        }
        m_triangles += c.triangles.size();
        faces(base + done, m_triangles);
        m_vertices += c.vertices.size();
        m_normals += c.normals.size();
        m_texCoords += c.texCoords.size();
        c.events.clear();
        m_chunks.push_back(std::move(c));
    }

    void finish()
    {
        // The arrays are made at their final size and filled stretch by
        // stretch, each stretch let go once copied.
        m_model.vertices->vec().reserve(m_vertices);
        m_model.normals->vec().reserve(m_normals);
        m_model.texCoords->vec().reserve(m_texCoords);
        m_model.triangles.reserve(m_triangles);
        for (Chunk& c : m_chunks) {
            append(m_model.vertices->vec(), c.vertices);
            append(m_model.normals->vec(), c.normals);
            append(m_model.texCoords->vec(), c.texCoords);
            append(m_model.triangles, c.triangles);
        }
        m_chunks.clear();
        // Groups that never got a face are dropped.
        std::vector<QvObjGroup> kept;
        kept.reserve(m_model.groups.size());
        for (auto& g : m_model.groups)
            if (!g.triangles.empty())
                kept.push_back(std::move(g));
        m_model.groups.swap(kept);
    }

private:
    template <class T> static void append(std::vector<T>& to, ChunkVector<T>& from)
    {
        to.insert(to.end(), from.begin(), from.end());
        ChunkVector<T>().swap(from);
    }

    int newGroup(int material)
    {
        QvObjGroup g;
        g.name = QString("object%1").arg(m_groupNumber++);
        g.material = material;
        m_model.groups.push_back(std::move(g));
        return int(m_model.groups.size()) - 1;
    }

    void faces(size_t from, size_t to)
    {
        if (from >= to)
            return;
        if (m_group < 0)
            m_group = newGroup(m_material);
        std::vector<unsigned>& list = m_model.groups[size_t(m_group)].triangles;
        for (size_t i = from; i < to; ++i)
            list.push_back(unsigned(i));
    }

    void usemtl(const QString& name)
    {
        int index = -1;
        for (size_t i = 0; i < m_model.materials.size(); ++i)
            if (m_model.materials[i].name == name) {
                index = int(i);
                break;
            }
        if (index < 0) {
            QvObjMaterial fresh;
            fresh.name = name;
            m_model.materials.push_back(fresh);
            index = int(m_model.materials.size()) - 1;
        }
        m_material = index;
        m_group = -1;
        for (size_t i = 0; i < m_model.groups.size(); ++i)
            if (m_model.groups[i].material == index) {
                m_group = int(i);
                break;
            }
        if (m_group < 0)
            m_group = newGroup(index);
    }

    void mtllib(const QString& name)
    {
        m_model.mtlName = name;
        const QString path = resolveObjName(m_model.pathName, name);
        QFile f(path);
        // Only a plain file: a name pointing at a device or a pipe must not hang the import.
        // Nor a file far larger than any material file (a system file named by a hostile OBJ).
        const QFileInfo info(path);
        if (name.isEmpty() || !info.isFile() || info.size() > kMaxMtlBytes || !f.open(QIODevice::ReadOnly)) {
            m_model.mtlMissing = true;
            return;
        }
        const QByteArray bytes = f.readAll();
        readMtlBuffer(m_model, bytes.constData(), size_t(bytes.size()));
    }

    QvObjModel& m_model;
    std::vector<Chunk> m_chunks;
    size_t m_vertices = 0, m_normals = 0, m_texCoords = 0, m_triangles = 0;
    int m_material = 0;
    int m_group = -1;
    int m_groupNumber = 0;
};

// Stretches of this size are read on worker threads while the file is put
// together in order; a stretch whose start a statement of the one before ran
// into is read again from where that statement ended.
constexpr size_t kChunkBytes = 4u << 20;

void parseAll(QvObjModel& model, const char* data, size_t size, IKvoProgress* progress,
              void (*release)(void*, const char*), void* releaseContext)
{
    const char* end = data + size;
    std::vector<const char*> starts{data};
    for (size_t at = kChunkBytes; at < size; at += kChunkBytes) {
        const void* nl = std::memchr(data + at, '\n', size - at);
        if (!nl)
            break;
        const char* s = static_cast<const char*>(nl) + 1;
        if (s < end && s > starts.back())
            starts.push_back(s);
        at = size_t(s - data);
    }
    const size_t n = starts.size();
    auto limitOf = [&](size_t i) { return i + 1 < n ? starts[i + 1] : end; };
    ObjAssembler assembler(model);
    auto report = [&](size_t i) {
        if (progress && size > 0)
            progress->step(double(limitOf(i) - starts[i]) / double(size));
        if (release)
            release(releaseContext, starts[i]);
    };

    const unsigned threads = std::min<unsigned>(std::max(1u, std::thread::hardware_concurrency()), 8u);
    if (n == 1 || threads == 1) {
        const char* from = data;
        for (size_t i = 0; i < n; ++i) {
            Chunk c;
            parseChunk(c, from, limitOf(i), end);
            from = c.nextToken;
            assembler.add(c);
            report(i);
        }
        assembler.finish();
        return;
    }

    std::vector<Chunk> chunks(n);
    std::vector<char> done(n, 0);
    std::mutex mutex;
    std::condition_variable changed;
    size_t assembled = 0;
    size_t nextChunk = 0;
    const size_t window = 2 * threads;
    auto worker = [&] {
        for (;;) {
            size_t i;
            {
                std::unique_lock<std::mutex> lock(mutex);
                // Never far ahead of the assembly: what waits for it is memory.
                changed.wait(lock, [&] { return nextChunk >= n || nextChunk < assembled + window; });
                if (nextChunk >= n)
                    return;
                i = nextChunk++;
            }
            parseChunk(chunks[i], starts[i], limitOf(i), end);
            {
                std::lock_guard<std::mutex> lock(mutex);
                done[i] = 1;
            }
            changed.notify_all();
        }
    };
    std::vector<std::thread> pool;
    for (unsigned t = 0; t < threads; ++t)
        pool.emplace_back(worker);
    const char* expected = nullptr;
    for (size_t i = 0; i < n; ++i) {
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [&] { return done[i] != 0; });
        }
        Chunk& c = chunks[i];
        if (i > 0 && c.firstToken != expected) {
            c = Chunk();
            parseChunk(c, expected, std::max(expected, limitOf(i)), end);
        }
        expected = c.nextToken;
        assembler.add(c);
        report(i);
        {
            std::lock_guard<std::mutex> lock(mutex);
            assembled = i + 1;
        }
        changed.notify_all();
    }
    for (auto& t : pool)
        t.join();
    assembler.finish();
}

// A read-only view of a file: mapped when it has bytes.
class MappedFile {
public:
    explicit MappedFile(const QString& path)
    {
        const QByteArray name = QFile::encodeName(path);
        m_fd = ::open(name.constData(), O_RDONLY | O_CLOEXEC);
        if (m_fd < 0)
            return;
        struct stat st;
        if (::fstat(m_fd, &st) != 0 || !S_ISREG(st.st_mode))
            return;
        m_size = size_t(st.st_size);
        m_ok = true;
        if (m_size == 0)
            return;
        void* p = ::mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, m_fd, 0);
        if (p == MAP_FAILED) {
            m_ok = false;
            return;
        }
        m_data = static_cast<const char*>(p);
        ::madvise(p, m_size, MADV_SEQUENTIAL);
    }
    ~MappedFile()
    {
        if (m_data)
            ::munmap(const_cast<char*>(m_data), m_size);
        if (m_fd >= 0)
            ::close(m_fd);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    bool ok() const { return m_ok; }
    const char* data() const { return m_data ? m_data : ""; }
    size_t size() const { return m_size; }

    // Pages behind pos are read and done with: dropping them keeps the
    // process small while a big file streams through (the page cache keeps them).
    static void release(void* self, const char* pos)
    {
        auto* f = static_cast<MappedFile*>(self);
        if (!f->m_data)
            return;
        const size_t page = size_t(::sysconf(_SC_PAGESIZE));
        size_t upto = size_t(pos - f->m_data);
        upto = upto > page ? ((upto - page) / page) * page : 0;
        if (upto > f->m_released) {
            ::madvise(const_cast<char*>(f->m_data) + f->m_released, upto - f->m_released, MADV_DONTNEED);
            f->m_released = upto;
        }
    }

private:
    int m_fd = -1;
    const char* m_data = nullptr;
    size_t m_size = 0;
    size_t m_released = 0;
    bool m_ok = false;
};

void resetModel(QvObjModel& model)
{
    const QString path = model.pathName;
    model = QvObjModel();
    model.pathName = path;
}

} // namespace

QString resolveObjName(const QString& objFolder, const QString& name)
{
    QString n = name;
    n.replace('\\', '/');
    if (n.contains(':') || n.startsWith('/'))
        return n;
    return objFolder + n;
}

void readMtlBuffer(QvObjModel& model, const char* data, size_t size)
{
    const char* end = data + size;
    // Pass 1: one material per line that starts with 'n', and the default.
    size_t count = 0;
    for (const char* p = data; p < end;) {
        if (*p == 'n')
            ++count;
        const void* nl = std::memchr(p, '\n', size_t(end - p));
        p = nl ? static_cast<const char*>(nl) + 1 : end;
    }
    // A second MTL file (or one named after a usemtl) adds to the materials
    // that groups already point at instead of replacing them.
    const bool first = model.materials.empty();
    const size_t base = model.materials.size();
    if (first) {
        model.materials.resize(count + 1);
        model.materials[0].name = "default";
    } else {
        model.materials.resize(base + count);
    }
    QvObjMaterial scratch; // what stands before the first newmtl of a second file
    size_t current = first ? 0 : size_t(-1);
    size_t next = first ? 1 : base;
    auto mat = [&]() -> QvObjMaterial& { return current == size_t(-1) ? scratch : model.materials[current]; };

    Scanner s(data, end);
    const char *b, *e;
    while (s.token(b, e)) {
        const size_t len = size_t(e - b);
        const char c = *b;
        if (c == '#') {
            s.skipLine();
        } else if (c == 'n') {
            const char *lb, *le;
            s.readLine(lb, le);
            current = next++;
            // Pass 1 counts lines that start with 'n'; an indented newmtl still gets a material.
            if (current >= model.materials.size())
                model.materials.resize(current + 1);
            model.materials[current].name = takeName(lb, le);
        } else if (c == 'K' && len == 2 && (b[1] == 'a' || b[1] == 'd' || b[1] == 's')) {
            float* dst = b[1] == 'a' ? mat().ambient : b[1] == 'd' ? mat().diffuse : mat().specular;
            if (s.scanFloat(dst[0]) && s.scanFloat(dst[1]))
                s.scanFloat(dst[2]);
        } else if (c == 'K') {
            s.skipLine();
        } else if (c == 'N') {
            float v = 0.f;
            if (s.scanFloat(v))
                mat().shininess = v / 1000.f * 128.f;
        } else if (len == 6 && std::memcmp(b, "map_Kd", 6) == 0) {
            const char *wb, *we;
            if (s.token(wb, we))
                mat().mapKd = QString::fromLocal8Bit(wb, int(we - wb));
            s.skipSpace();
        } else if (c == 'm') {
            // Other maps: the word is passed over; its file name then skips the line.
        } else {
            s.skipLine();
        }
    }
}

long readObjBuffer(QvObjModel& model, const char* data, size_t size, const QString& folder, IKvoProgress* progress)
{
    resetModel(model);
    model.pathName = folder;
    // A text file holds no NUL byte; binary files and UTF-16 texts show one at once.
    if (size > 0 && std::memchr(data, 0, std::min<size_t>(size, 64 * 1024))) {
        resetModel(model);
        return kvoObjNotText;
    }
    parseAll(model, data, size, progress, nullptr, nullptr);
    return 0;
}

long readObjFile(QvObjModel& model, const QString& file, IKvoProgress* progress)
{
    QFileInfo fi(file);
    resetModel(model);
    model.pathName = fi.absolutePath() + "/";
    MappedFile mapped(fi.absoluteFilePath());
    if (!mapped.ok())
        return kvoObjCannotOpen;
    const char* data = mapped.data();
    const size_t size = mapped.size();
    if (size > 0 && std::memchr(data, 0, std::min<size_t>(size, 64 * 1024))) {
        resetModel(model);
        return kvoObjNotText;
    }
    parseAll(model, data, size, progress, &MappedFile::release, &mapped);
    return 0;
}

} // namespace kvo
