// The run report's 3D view of a take: the skeleton as bones over a ground grid, its feet lit
// while in contact, the root's path on the ground, playing the loop (repeating) or the whole
// skill, with play/pause and a frame slider. Uses the parts of three.js the page inlines
// (global KNR_THREE); the take's data comes from the take file's "view" (converter/
// view_sampler.h).
//
// Rules:
//   1. One WebGL context for the whole page, however many takes: browsers allow about sixteen.
//      A single renderer draws each view in turn into its own off-screen canvas, and each view
//      copies the picture into its own 2D canvas. A view renders only when its frame changes.
//   2. A view plays only while it is on screen (and the page is visible): one animation loop
//      for every playing view, stopped when none plays. A view shows its first frame as soon as
//      it is made, so a print or a screenshot shows every view.
//   3. The loop plays its window over and over: its last frame is its first one again, so one
//      cycle plays every sample but the last, and each cycle starts where the COG ended the one
//      before (the loop travels as the runtime plays it). The whole skill plays once and then
//      from its start again. The grid (forty squares of a round length near half the body's
//      height) moves with the COG by whole squares, so it stays under the figure and still
//      shows a sliding foot against its lines.
//   4. Time is real time: a sample lasts frameTime x step seconds.
//   5. A foot is lit (with its joints below it) on the frames inside its contact intervals.
//   6. The camera looks at the COG from the front-left and a little above, at a distance that
//      fits the body, and follows the COG over the ground.
//   7. Without WebGL the view says so in place of the picture; the charts are unaffected.
(function () {
  'use strict';

  var THREE = window.KNR_THREE;
  var COLORS = {
    bone: 0x1565c0,
    contact: 0x00c853,
    path: 0xe08a00,
    grid: 0xb0b0b0,
    background: 0xf7f7f7
  };
  var JOINT_SIZE = 4;
  var FOOT_SIZE = 9;
  var GRID_SQUARES = 40;  // across; the grid moves with the COG by whole squares

  // ---- the shared renderer (rule 1) --------------------------------------------------------

  var renderer = null, rendererFailed = false;
  function sharedRenderer() {
    if (renderer || rendererFailed) return renderer;
    try {
      var canvas = document.createElement('canvas');
      var gl = canvas.getContext('webgl2', { antialias: true, preserveDrawingBuffer: true });
      if (!gl) throw new Error('no WebGL');
      renderer = new THREE.WebGLRenderer({ canvas: canvas, context: gl, antialias: true });
      renderer.setPixelRatio(1);
    } catch (e) {
      rendererFailed = true;
      renderer = null;
    }
    return renderer;
  }

  // ---- the take's data ---------------------------------------------------------------------

  // Joint positions of a clip as floats, [sample][joint][x, y, z].
  function decode(clip, joints) {
    var text = atob(clip.positions);
    var count = clip.count * joints * 3;
    var out = new Float32Array(count);
    for (var i = 0; i < count; i++) {
      var v = text.charCodeAt(2 * i) | (text.charCodeAt(2 * i + 1) << 8);
      out[i] = (v >= 32768 ? v - 65536 : v) * clip.unit;
    }
    return out;
  }

  function inIntervals(intervals, frame) {
    for (var i = 0; i < intervals.length; i++) {
      if (frame >= intervals[i][0] && frame <= intervals[i][1]) return true;
    }
    return false;
  }

  // A grid spacing of 1, 2 or 5 times a power of ten near `size`.
  function niceStep(size) {
    var p = Math.pow(10, Math.floor(Math.log10(size)));
    var m = size / p;
    return (m < 1.5 ? 1 : m < 3.5 ? 2 : m < 7.5 ? 5 : 10) * p;
  }

  // A grid of GRID_SQUARES x GRID_SQUARES squares of side `spacing` on y = 0, centred on the
  // origin, made of one segment per side of a square: a line that runs behind the camera is
  // dropped whole by some software renderers, a short segment only where it is behind.
  function groundGrid(spacing) {
    var half = GRID_SQUARES / 2, points = [];
    for (var i = -half; i <= half; i++) {
      for (var k = -half; k < half; k++) {
        points.push(i * spacing, 0, k * spacing, i * spacing, 0, (k + 1) * spacing);
        points.push(k * spacing, 0, i * spacing, (k + 1) * spacing, 0, i * spacing);
      }
    }
    var g = new THREE.BufferGeometry();
    g.setAttribute('position', new THREE.BufferAttribute(new Float32Array(points), 3));
    return new THREE.LineSegments(g, new THREE.LineBasicMaterial({ color: COLORS.grid }));
  }

  // ---- one view ----------------------------------------------------------------------------

  function View(container, take, onFrame) {
    var view = take.view;
    var joints = view.parents.length;
    var cog = Math.max(0, view.parents.indexOf(-1));
    var self = this;
    this.onFrame = onFrame;
    this.clips = {};
    this.clips.skill = { data: view.skill, pos: decode(view.skill, joints) };
    if (view.loop) this.clips.loop = { data: view.loop, pos: decode(view.loop, joints) };
    this.joints = joints;
    this.cog = cog;
    this.frameTime = view.frameTime;

    // Contact intervals per lit joint: a foot's own and those of the joints below it.
    var intervalsOf = {};
    var contacts = (take.plots && take.plots.contacts && take.plots.contacts.feet) || [];
    contacts.forEach(function (f) { intervalsOf[f.name] = f.intervals || []; });
    this.lit = [];
    (view.feet || []).forEach(function (foot) {
      var intervals = intervalsOf[foot.name];
      if (!intervals) return;
      for (var j = 0; j < joints; j++) {
        for (var a = j; a >= 0; a = view.parents[a]) {
          if (a === foot.joint) { self.lit.push({ joint: j, intervals: intervals }); break; }
        }
      }
    });

    // Size of the body and its floor, from the skill's samples.
    var pos = this.clips.skill.pos, minY = Infinity, maxY = -Infinity;
    for (var i = 1; i < pos.length; i += 3) {
      if (pos[i] < minY) minY = pos[i];
      if (pos[i] > maxY) maxY = pos[i];
    }
    var height = Math.max(1e-6, maxY - minY);
    this.floor = minY;
    this.height = height;

    // The scene: bones, joints, lit feet, the grid, the root's path.
    var scene = new THREE.Scene();
    scene.background = new THREE.Color(COLORS.background);
    var bonePairs = [];
    for (var j = 0; j < joints; j++) if (view.parents[j] >= 0) bonePairs.push(view.parents[j], j);
    this.bonePairs = bonePairs;
    this.boneGeometry = new THREE.BufferGeometry();
    this.boneGeometry.setAttribute('position',
      new THREE.BufferAttribute(new Float32Array(bonePairs.length * 3), 3));
    scene.add(new THREE.LineSegments(this.boneGeometry, new THREE.LineBasicMaterial({ color: COLORS.bone })));
    this.jointGeometry = new THREE.BufferGeometry();
    this.jointGeometry.setAttribute('position', new THREE.BufferAttribute(new Float32Array(joints * 3), 3));
    scene.add(new THREE.Points(this.jointGeometry, new THREE.PointsMaterial({
      color: COLORS.bone, size: JOINT_SIZE, sizeAttenuation: false })));
    this.litGeometry = new THREE.BufferGeometry();
    this.litGeometry.setAttribute('position',
      new THREE.BufferAttribute(new Float32Array(Math.max(1, this.lit.length) * 3), 3));
    scene.add(new THREE.Points(this.litGeometry, new THREE.PointsMaterial({
      color: COLORS.contact, size: FOOT_SIZE, sizeAttenuation: false })));

    this.spacing = niceStep(height / 2);
    var path = take.plots && take.plots.path;
    this.grid = groundGrid(this.spacing);
    scene.add(this.grid);
    this.path = null;
    if (path && path.x && path.x.length > 1) {
      var points = [];
      for (i = 0; i < path.x.length; i++) {
        if (path.x[i] == null || path.z[i] == null) continue;
        points.push(path.x[i], this.floor + height * 0.002, path.z[i]);
      }
      var g = new THREE.BufferGeometry();
      g.setAttribute('position', new THREE.BufferAttribute(new Float32Array(points), 3));
      this.path = new THREE.Line(g, new THREE.LineBasicMaterial({ color: COLORS.path }));
      scene.add(this.path);
    }
    this.scene = scene;
    this.camera = new THREE.PerspectiveCamera(35, 16 / 9, height / 50, height * 400);

    // The page's parts: the picture, play/pause, the clip, the slider and the frame.
    var fig = document.createElement('figure');
    fig.className = 'view3d';
    var cap = document.createElement('figcaption');
    cap.textContent = '3D view: bones, feet lit (green) while in contact, root path (orange); ' +
      'grid squares of ' + +this.spacing.toPrecision(3) + ' ' + (take.unitsShort || 'units');
    fig.appendChild(cap);
    this.canvas = document.createElement('canvas');
    this.canvas.className = 'view3d-canvas';
    fig.appendChild(this.canvas);
    var bar = document.createElement('div');
    bar.className = 'view3d-controls';
    this.playButton = document.createElement('button');
    this.playButton.type = 'button';
    this.playButton.className = 'play';
    this.playButton.addEventListener('click', function () { self.setPlaying(!self.playing); });
    bar.appendChild(this.playButton);
    this.clipSelect = document.createElement('select');
    this.clipSelect.className = 'clip';
    if (this.clips.loop) {
      var made = view.loop.made;
      this.clipSelect.add(new Option(made ? 'loop (as made)' : 'loop window (before blending)', 'loop'));
    }
    this.clipSelect.add(new Option('whole skill' + (view.skill.step > 1 ? ' (every ' + view.skill.step + ' frames)' : ''), 'skill'));
    this.clipSelect.addEventListener('change', function () { self.useClip(self.clipSelect.value); });
    bar.appendChild(this.clipSelect);
    this.slider = document.createElement('input');
    this.slider.type = 'range';
    this.slider.className = 'frame';
    this.slider.addEventListener('input', function () {
      self.setPlaying(false);
      self.showSample(Number(self.slider.value), 0);
    });
    bar.appendChild(this.slider);
    this.label = document.createElement('span');
    this.label.className = 'frame-label';
    bar.appendChild(this.label);
    fig.appendChild(bar);
    container.appendChild(fig);
    this.figure = fig;

    this.visible = false;
    this.playing = true;
    this.useClip(this.clips.loop ? 'loop' : 'skill');
    this.setPlaying(true);
  }

  View.prototype.useClip = function (name) {
    this.clipName = name;
    this.clip = this.clips[name];
    var d = this.clip.data;
    this.cycleSamples = name === 'loop' && d.count > 2 ? d.count - 1 : d.count;
    this.slider.min = 0;
    this.slider.max = Math.max(0, d.count - 1);
    this.slider.step = 1;
    this.clipSelect.value = name;
    this.path && (this.path.visible = name === 'skill');
    this.time = 0;
    this.showSample(0, 0);
  };

  View.prototype.setPlaying = function (playing) {
    this.playing = playing;
    this.playButton.textContent = playing ? 'Pause' : 'Play';
    this.last = null;
    wake();
  };

  View.prototype.frameOf = function (sample) {
    return this.clip.data.first + sample * this.clip.data.step;
  };

  // Poses the skeleton at `sample` of the current clip, moved along by `cycle` loop cycles.
  View.prototype.showSample = function (sample, cycle) {
    var d = this.clip.data, pos = this.clip.pos, J = this.joints;
    var base = sample * J * 3;
    var ox = 0, oz = 0;
    if (cycle && this.clipName === 'loop') {
      var end = (this.cycleSamples) * J * 3 + 3 * this.cog;
      ox = cycle * (pos[end] - pos[3 * this.cog]);
      oz = cycle * (pos[end + 2] - pos[3 * this.cog + 2]);
    }
    var bones = this.boneGeometry.attributes.position.array;
    for (var i = 0; i < this.bonePairs.length; i++) {
      var j = base + 3 * this.bonePairs[i];
      bones[3 * i] = pos[j] + ox; bones[3 * i + 1] = pos[j + 1]; bones[3 * i + 2] = pos[j + 2] + oz;
    }
    this.boneGeometry.attributes.position.needsUpdate = true;
    this.boneGeometry.computeBoundingSphere();
    var points = this.jointGeometry.attributes.position.array;
    for (i = 0; i < J; i++) {
      points[3 * i] = pos[base + 3 * i] + ox;
      points[3 * i + 1] = pos[base + 3 * i + 1];
      points[3 * i + 2] = pos[base + 3 * i + 2] + oz;
    }
    this.jointGeometry.attributes.position.needsUpdate = true;
    this.jointGeometry.computeBoundingSphere();
    var frame = this.frameOf(sample);
    var lit = this.litGeometry.attributes.position.array, n = 0;
    for (i = 0; i < this.lit.length; i++) {
      if (!inIntervals(this.lit[i].intervals, frame)) continue;
      var k = base + 3 * this.lit[i].joint;
      lit[3 * n] = pos[k] + ox; lit[3 * n + 1] = pos[k + 1]; lit[3 * n + 2] = pos[k + 2] + oz;
      n++;
    }
    this.litGeometry.setDrawRange(0, n);
    this.litGeometry.attributes.position.needsUpdate = true;
    this.litGeometry.computeBoundingSphere();

    // The camera follows the COG (rule 6); the grid moves by whole squares (rule 3).
    var cx = pos[base + 3 * this.cog] + ox, cz = pos[base + 3 * this.cog + 2] + oz;
    var cy = this.floor + this.height * 0.5, r = this.height * 2.6;
    this.camera.position.set(cx - r * 0.55, cy + r * 0.3, cz + r * 0.78);
    this.camera.lookAt(cx, cy, cz);
    var s = this.spacing;
    this.grid.position.set(Math.round(cx / s) * s, this.floor, Math.round(cz / s) * s);

    this.sample = sample;
    this.slider.value = String(sample);
    this.label.textContent = 'frame ' + frame + (this.clipName === 'loop' ? ' (loop ' + d.first +
      '\u2013' + (d.first + (d.count - 1) * d.step) + ')' : '');
    this.figure.setAttribute('data-frame', String(frame));
    this.render();
    if (this.onFrame) this.onFrame(frame, this.clipName === 'loop' ? d.first : null);
  };

  View.prototype.render = function () {
    var r = sharedRenderer();
    var w = Math.max(200, Math.floor(this.canvas.clientWidth || this.figure.clientWidth || 640));
    var h = Math.round(w * 9 / 16);
    if (this.canvas.width !== w || this.canvas.height !== h) {
      this.canvas.width = w;
      this.canvas.height = h;
    }
    var ctx = this.canvas.getContext('2d');
    if (!r) {
      ctx.fillStyle = '#f7f7f7';
      ctx.fillRect(0, 0, w, h);
      ctx.fillStyle = '#b3261e';
      ctx.font = '14px sans-serif';
      ctx.fillText('The 3D view needs WebGL, which this browser does not provide.', 16, 28);
      return;
    }
    var size = r.getSize(new THREE.Vector2());
    if (size.x !== w || size.y !== h) r.setSize(w, h, false);
    this.camera.aspect = w / h;
    this.camera.updateProjectionMatrix();
    r.render(this.scene, this.camera);
    ctx.drawImage(r.domElement, 0, 0);
  };

  // Advances by `dt` seconds of real time (rule 4).
  View.prototype.advance = function (dt) {
    var d = this.clip.data;
    var sampleTime = this.frameTime * d.step;
    this.time += dt;
    var total = Math.floor(this.time / sampleTime);
    var cycle = Math.floor(total / this.cycleSamples);
    this.showSample(total % this.cycleSamples, cycle);
  };

  // ---- the shared animation loop (rule 2) --------------------------------------------------

  var views = [];
  var running = false;
  function tick(now) {
    var any = false;
    if (!document.hidden) {
      for (var i = 0; i < views.length; i++) {
        var v = views[i];
        if (!v.playing || !v.visible) { v.last = null; continue; }
        any = true;
        if (v.last != null) v.advance(Math.min(0.25, (now - v.last) / 1000));
        v.last = now;
      }
    }
    running = any;
    if (any) requestAnimationFrame(tick);
  }
  function wake() {
    if (running) return;
    running = true;
    requestAnimationFrame(tick);
  }
  document.addEventListener('visibilitychange', wake);

  var observer = 'IntersectionObserver' in window ? new IntersectionObserver(function (entries) {
    entries.forEach(function (e) {
      var v = e.target.knrView;
      if (v) v.visible = e.isIntersecting;
    });
    wake();
  }) : null;

  // Makes the view of `take` in `container`; `onFrame(frame, loopStart)` is told every frame
  // shown. Returns the view, or null when the take has none.
  function create(container, take, onFrame) {
    if (!take || !take.view || !THREE) return null;
    var v = new View(container, take, onFrame);
    views.push(v);
    v.canvas.knrView = v;
    if (observer) observer.observe(v.canvas); else v.visible = true;
    return v;
  }

  window.KnrView = { create: create };
})();
