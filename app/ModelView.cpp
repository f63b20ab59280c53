#include "ModelView.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include <cmath>

using namespace kvo;

namespace quovara {

ModelView::ModelView(ref_ptr<CZebViewerMan> vm, QWidget* parent) : QOpenGLWidget(parent), m_vm(vm)
{
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setMinimumSize(200, 150);
    m_vm->modelViewer()->setContextHook([this](bool current) {
        if (current)
            makeCurrent();
        else
            doneCurrent();
    });
}

ModelView::~ModelView()
{
    m_vm->modelViewer()->setContextHook(nullptr);
    makeCurrent();
    resetCache();
    doneCurrent();
}

void ModelView::resetCache()
{
    if (context())
        for (auto& kv : m_cache)
            if (kv.second.texture)
                glDeleteTextures(1, &kv.second.texture);
    m_cache.clear();
}

void ModelView::fitToModel()
{
    m_vm->modelViewer()->trackBall()->fitToModel();
    update();
}

void ModelView::viewModelFromFront()
{
    m_vm->modelViewer()->trackBall()->viewFromFront();
    update();
}

void ModelView::initializeGL()
{
    initializeOpenGLFunctions();
    glClearColor(0.18f, 0.19f, 0.21f, 1.f);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_NORMALIZE);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, GL_TRUE);
    const GLfloat ambient[] = {0.35f, 0.35f, 0.35f, 1.f}, diffuse[] = {0.75f, 0.75f, 0.75f, 1.f};
    glLightfv(GL_LIGHT0, GL_AMBIENT, ambient);
    glLightfv(GL_LIGHT0, GL_DIFFUSE, diffuse);
}

void ModelView::resizeGL(int w, int h)
{
    m_vm->modelViewer()->setSize(w, h);
}

void ModelView::prepare(MeshDraw& d, const ref_ptr<IKvoMesh>& mesh)
{
    IKvoModel* model = mesh->getModel();
    const Pnt3fArray* verts = model ? model->getVertices() : nullptr;
    if (!verts)
        return;
    if (d.version == mesh->getDisplayVersion() && d.vertexArray.get() == verts && d.vertices == verts->getData() &&
        d.vertexCount == verts->getCount())
        return;
    d.version = mesh->getDisplayVersion();
    d.vertexArray = verts;
    d.vertices = verts->getData();
    d.vertexCount = verts->getCount();
    const XPnt3f* v = verts->getData();
    const long nv = verts->getCount();
    const UIntArray* tris = mesh->getTriangleIndices();
    const unsigned* t = tris->getData();
    const long faces = mesh->getFaceCount();
    const Pnt3fArray* normals = mesh->getFaceNormals();
    const Pnt2fArray* uvs = mesh->getUVs();
    const UIntArray* corners = mesh->getCornerTexIndices();
    const ByteArray* marks = mesh->getSelMarks();
    d.positions.assign(size_t(faces) * 9, 0.f);
    d.normals.assign(size_t(faces) * 9, 0.f);
    d.uvs.assign(uvs ? size_t(faces) * 6 : 0, 0.f);
    d.markedPositions.clear();
    for (long f = 0; f < faces; ++f) {
        const XPnt3f n = normals && f < normals->getCount() ? normals->getAt(f) : XPnt3f(0, 0, 1);
        const bool marked = marks && f < marks->getCount() && (*marks)[f];
        for (int k = 0; k < 3; ++k) {
            const unsigned vi = t[3 * f + k];
            const XPnt3f p = long(vi) < nv ? v[vi] : XPnt3f();
            float* pp = &d.positions[size_t(9 * f + 3 * k)];
            pp[0] = p.x, pp[1] = p.y, pp[2] = p.z;
            float* np = &d.normals[size_t(9 * f + 3 * k)];
            np[0] = n.x, np[1] = n.y, np[2] = n.z;
            if (uvs) {
                const long ui = corners ? long(corners->getAt(3 * f + k)) : long(vi);
                const XPnt2f uv = ui >= 0 && ui < uvs->getCount() ? uvs->getAt(ui) : XPnt2f();
                // UV (0,0) is the picture's bottom-left; textures are uploaded rows top-down.
                d.uvs[size_t(6 * f + 2 * k)] = uv.x;
                d.uvs[size_t(6 * f + 2 * k + 1)] = 1.f - uv.y;
            }
            if (marked)
                d.markedPositions.insert(d.markedPositions.end(), {p.x, p.y, p.z});
        }
    }
}

void ModelView::prepareTexture(MeshDraw& d, const ref_ptr<IKvoMesh>& mesh)
{
    ref_ptr<IKvoImage> img;
    mesh->getImage(img);
    if (!img || img->isEmpty()) {
        d.textureImage = nullptr;
        return;
    }
    if (d.texture && d.textureImage == img.get() && d.textureRevision == img->getRevision())
        return;
    GLint maxSize = 4096;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
    ref_ptr<IKvoImage> upload = img;
    if (img->getWidth() > maxSize || img->getHeight() > maxSize) {
        const double s = double(maxSize) / double(std::max(img->getWidth(), img->getHeight()));
        upload = img->resized(std::max(1L, long(img->getWidth() * s)), std::max(1L, long(img->getHeight() * s)));
    }
    if (!d.texture)
        glGenTextures(1, &d.texture);
    glBindTexture(GL_TEXTURE_2D, d.texture);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, GLint(upload->getStride() / 4));
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, GLsizei(upload->getWidth()), GLsizei(upload->getHeight()), 0, GL_RGBA,
                 GL_UNSIGNED_BYTE, upload->getData());
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    const GLint wrap = mesh->isTiled() ? GL_REPEAT : GL_CLAMP_TO_EDGE;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, wrap);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, wrap);
    d.textureImage = img.get();
    d.textureRevision = img->getRevision();
}

void ModelView::drawMesh(const ref_ptr<IKvoMesh>& mesh, bool textured)
{
    MeshDraw& d = m_cache[mesh.get()];
    prepare(d, mesh);
    if (d.positions.empty())
        return;
    const bool useTexture = textured && mesh->isShowTexture() && !d.uvs.empty();
    if (useTexture)
        prepareTexture(d, mesh);
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_NORMAL_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, d.positions.data());
    glNormalPointer(GL_FLOAT, 0, d.normals.data());
    if (useTexture && d.textureImage) {
        glDisable(GL_LIGHTING);
        glEnable(GL_TEXTURE_2D);
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        glEnable(GL_ALPHA_TEST);
        glAlphaFunc(GL_GREATER, 0.01f);
        glBindTexture(GL_TEXTURE_2D, d.texture);
        glEnableClientState(GL_TEXTURE_COORD_ARRAY);
        glTexCoordPointer(2, GL_FLOAT, 0, d.uvs.data());
        glColor4f(1, 1, 1, 1);
        // Half-transparent texels must not make the view itself transparent to
        // the window system, which composes by the frame buffer's alpha.
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_FALSE);
        // Texture meshes lie on the bare surface: pull them forward a little.
        glEnable(GL_POLYGON_OFFSET_FILL);
        glPolygonOffset(-1.f, -2.f);
        glDrawArrays(GL_TRIANGLES, 0, GLsizei(d.positions.size() / 3));
        glDisable(GL_POLYGON_OFFSET_FILL);
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        glDisableClientState(GL_TEXTURE_COORD_ARRAY);
        glDisable(GL_TEXTURE_2D);
        glDisable(GL_ALPHA_TEST);
        glDisable(GL_BLEND);
    } else {
        glEnable(GL_LIGHTING);
        glEnable(GL_LIGHT0);
        glEnable(GL_COLOR_MATERIAL);
        const KvoColor4b c = mesh->getSolidColor();
        glColor4ub(c.r, c.g, c.b, c.a);
        glDrawArrays(GL_TRIANGLES, 0, GLsizei(d.positions.size() / 3));
        glDisable(GL_LIGHTING);
    }
    glDisableClientState(GL_NORMAL_ARRAY);
    if (!d.markedPositions.empty()) {
        const KvoColor4b c = mesh->getSelColor();
        glColor4ub(c.r, c.g, c.b, c.a);
        glEnable(GL_POLYGON_OFFSET_FILL);
        glPolygonOffset(-2.f, -4.f);
        glVertexPointer(3, GL_FLOAT, 0, d.markedPositions.data());
        glDrawArrays(GL_TRIANGLES, 0, GLsizei(d.markedPositions.size() / 3));
        glDisable(GL_POLYGON_OFFSET_FILL);
    }
    glDisableClientState(GL_VERTEX_ARRAY);
}

void ModelView::paintGL()
{
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    CKvoTrackBall* ball = m_vm->modelViewer()->trackBall();
    double proj[16], mv[16];
    ball->getProjection(proj);
    ball->getModelView(mv);
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixd(proj);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    // A head light: fixed relative to the camera.
    const GLfloat lightPos[] = {0.f, 0.f, 1.f, 0.f};
    glLightfv(GL_LIGHT0, GL_POSITION, lightPos);
    glLoadMatrixd(mv);

    IKvoMM* mm = getMM();
    ref_ptr<MeshArray> shown;
    mm->getShownMeshes(shown);
    std::map<const IKvoMesh*, bool> alive;
    for (const ref_ptr<IKvoMesh>& mesh : shown->vec()) {
        alive[mesh.get()] = true;
        drawMesh(mesh, mm->isTexMesh(mesh));
    }
    ref_ptr<IKvoModel> model;
    if (mm->getBareModel(model) && model->isShowVertices() && model->getVertexCount() > 0) {
        glColor3f(1.f, 1.f, 0.3f);
        glPointSize(3.f);
        glEnableClientState(GL_VERTEX_ARRAY);
        glVertexPointer(3, GL_FLOAT, 0, model->getVertices()->getData());
        glDrawArrays(GL_POINTS, 0, GLsizei(model->getVertexCount()));
        glDisableClientState(GL_VERTEX_ARRAY);
    }
    // Meshes that are no longer shown give their memory back.
    for (auto it = m_cache.begin(); it != m_cache.end();) {
        if (alive.count(it->first)) {
            ++it;
            continue;
        }
        if (it->second.texture)
            glDeleteTextures(1, &it->second.texture);
        it = m_cache.erase(it);
    }
    m_vm->paint(kvoModelView);
}

void ModelView::mousePressEvent(QMouseEvent* e)
{
    const long flags = kvoModifierWord(e->modifiers(), e->buttons());
    if (m_vm->mouseDown(kvoModelView, flags, e->x(), e->y()) == kvoNotHandled) {
        m_dragButton = e->button();
        m_last = e->pos();
    }
    update();
}

void ModelView::mouseReleaseEvent(QMouseEvent* e)
{
    const long flags = kvoModifierWord(e->modifiers(), e->buttons() | e->button());
    m_vm->mouseUp(kvoModelView, flags, e->x(), e->y());
    if (e->button() == m_dragButton)
        m_dragButton = Qt::NoButton;
    update();
}

void ModelView::mouseMoveEvent(QMouseEvent* e)
{
    const long flags = kvoModifierWord(e->modifiers(), e->buttons());
    const long rc = m_vm->mouseMove(kvoModelView, flags, e->x(), e->y());
    if (rc == kvoNotHandled && m_dragButton != Qt::NoButton) {
        const QPoint d = e->pos() - m_last;
        CKvoTrackBall* ball = m_vm->modelViewer()->trackBall();
        if (m_dragButton == Qt::LeftButton && !(e->modifiers() & Qt::ShiftModifier))
            ball->rotate(d.x(), d.y());
        else
            ball->pan(d.x(), d.y());
        m_last = e->pos();
        update();
    } else if (rc != kvoNotHandled) {
        update();
    }
}

void ModelView::mouseDoubleClickEvent(QMouseEvent* e)
{
    m_vm->mouseDoubleClick(kvoModelView, kvoModifierWord(e->modifiers(), e->buttons()), e->x(), e->y());
    update();
}

void ModelView::wheelEvent(QWheelEvent* e)
{
    const QPoint p = e->position().toPoint();
    const long delta = e->angleDelta().y();
    if (m_vm->mouseWheel(kvoModelView, kvoModifierWord(e->modifiers(), e->buttons()), delta, p.x(), p.y()) ==
        kvoNotHandled)
        m_vm->modelViewer()->trackBall()->zoom(std::pow(1.0015, double(delta)));
    update();
}

void ModelView::keyPressEvent(QKeyEvent* e)
{
    const long flags = kvoModifierWord(e->modifiers(), Qt::NoButton);
    if (m_vm->keyDown(kvoModelView, e->key(), e->isAutoRepeat() ? 1 : 0, flags) == kvoNotHandled) {
        if (e->key() == Qt::Key_F && !e->modifiers())
            fitToModel();
        else
            QOpenGLWidget::keyPressEvent(e);
    }
    update();
}

void ModelView::keyReleaseEvent(QKeyEvent* e)
{
    m_vm->keyUp(kvoModelView, e->key(), e->isAutoRepeat() ? 1 : 0, kvoModifierWord(e->modifiers(), Qt::NoButton));
}

void ModelView::enterEvent(QEvent*)
{
    m_vm->mouseEnter(kvoModelView);
}
void ModelView::leaveEvent(QEvent*)
{
    m_vm->mouseLeave(kvoModelView);
}

} // namespace quovara
