// Draws the run report's plots with uPlot, and each take's 3D view (view3d.js), from the json
// embedded in the page. The page is written by the converter's report writer, which already
// checked and thinned every series.
//
// Drawing order: the takes whose sections are on the first screen are drawn while the page
// loads, so its first paint (and a one-shot screenshot) shows them; the others follow in page
// order in idle time, a few at a time, so the page stays responsive; a print draws whatever is
// left first. No scrolling is needed for anything to be drawn. <div class="plots"
// data-drawn="yes"> marks a take drawn. After each round of drawing, once it is on screen,
// window.reportDrawn holds how many charts and views exist and the milliseconds since the page
// started loading; <html data-drawn="yes"> is set after the first round and
// <html data-drawn-all="yes"> once every take is drawn.
//
// Axes carry the take's units ("cm" for a take in centimetres; "units" when they are unknown).
// Moving a view's frame (playing or its slider) moves the frame cursor of its take's charts.
(function () {
  'use strict';

  var COLORS = {
    heel: '#1f5fa8',
    limit: '#c62828',
    contact: 'rgba(46, 125, 50, 0.20)',
    path: '#1f5fa8',
    start: '#2e7d32',
    end: '#c62828',
    before: '#e08a00',
    after: '#1f5fa8',
    join: 'rgba(0, 0, 0, 0.45)',
    speed: 'rgba(90, 90, 90, 0.75)'
  };
  var CONTACT_HEIGHT = 180;
  var AXIS_SIZE = 56;  // fixed, so the plot area does not move when the ranges change

  var data = JSON.parse(document.getElementById('report-data').textContent);
  var charts = [];
  var views = 0;
  var UNITS = { metres: 'm', centimetres: 'cm', millimetres: 'mm', inches: 'in' };
  data.takes.forEach(function (t) { t.unitsShort = UNITS[t.units] || 'units'; });

  function figure(container, caption, half) {
    var fig = document.createElement('figure');
    if (half) fig.className = 'half';
    var cap = document.createElement('figcaption');
    cap.textContent = caption;
    fig.appendChild(cap);
    container.appendChild(fig);
    return fig;
  }

  // Chart widths come from the width of the plot area, read once: reading a size forces a
  // layout, and one per chart makes a long report quadratic. A half-width figure sits beside
  // another when two fit (see .plots in report.css).
  var plotsWidth = 0;
  var HALF_MIN = 420, GAP = 24;
  function measure() {
    var el = document.querySelector('.plots');
    plotsWidth = el ? Math.floor(el.getBoundingClientRect().width) : 800;
  }
  function chartWidth(half) {
    var w = half && plotsWidth >= 2 * HALF_MIN + GAP ? Math.floor((plotsWidth - GAP) / 2) : plotsWidth;
    return Math.max(280, w);
  }

  function clipToPlot(u, ctx) {
    var b = u.bbox;
    ctx.beginPath();
    ctx.rect(b.left, b.top, b.width, b.height);
    ctx.clip();
  }

  function make(fig, opts, series, height, half) {
    opts.width = chartWidth(half);
    opts.height = height(opts.width);
    var chart = new uPlot(opts, series, fig);
    charts.push({ chart: chart, half: half, height: height });
    return chart;
  }

  // Heel height over the frames, the height limit as a dashed line, contacts as shaded bands.
  function contactChart(container, plot, foot, units) {
    var hasSpeed = Array.isArray(foot.speed);
    var fig = figure(container, foot.name + ': heel height, height limit (dashed)' +
      (hasSpeed ? ', speed (grey, right axis)' : '') + ' and contacts (shaded); ' +
      'drag to zoom, double-click to see all');
    var limit = plot.frames.map(function () { return foot.limit; });
    var intervals = foot.intervals;
    var series = [
      { label: 'frame' },
      { label: 'heel (' + units + ')', stroke: COLORS.heel, width: 1 },
      { label: 'limit', stroke: COLORS.limit, width: 1, dash: [6, 4], show: foot.limit != null }
    ];
    var axes = [{ label: 'frame' }, { label: 'height (' + units + ')', size: AXIS_SIZE }];
    var values = [plot.frames, foot.heel, limit];
    if (hasSpeed) {
      series.push({ label: 'speed (' + units + '/s)', stroke: COLORS.speed, width: 1, scale: 'speed' });
      axes.push({ label: 'speed (' + units + '/s)', scale: 'speed', side: 1, size: AXIS_SIZE,
        grid: { show: false } });
      values.push(foot.speed);
    }
    var opts = {
      scales: { x: { time: false } },
      series: series,
      axes: axes,
      legend: { live: true },
      hooks: {
        drawClear: [function (u) {
          var ctx = u.ctx, b = u.bbox;
          ctx.save();
          clipToPlot(u, ctx);
          ctx.fillStyle = COLORS.contact;
          for (var i = 0; i < intervals.length; i++) {
            var x0 = u.valToPos(intervals[i][0], 'x', true);
            var x1 = u.valToPos(intervals[i][1], 'x', true);
            if (x1 < b.left || x0 > b.left + b.width) continue;
            ctx.fillRect(x0, b.top, Math.max(1, x1 - x0), b.height);
          }
          ctx.restore();
        }]
      }
    };
    return make(fig, opts, values, function () { return CONTACT_HEIGHT; });
  }

  // The x and z ranges that give both axes the same units per pixel, with a margin.
  function equalRanges(u, xs, zs) {
    var minX = Infinity, maxX = -Infinity, minZ = Infinity, maxZ = -Infinity;
    for (var i = 0; i < xs.length; i++) {
      if (xs[i] == null || zs[i] == null) continue;
      if (xs[i] < minX) minX = xs[i];
      if (xs[i] > maxX) maxX = xs[i];
      if (zs[i] < minZ) minZ = zs[i];
      if (zs[i] > maxZ) maxZ = zs[i];
    }
    if (minX > maxX) { minX = -1; maxX = 1; minZ = -1; maxZ = 1; }
    var w = Math.max(1, u.bbox.width), h = Math.max(1, u.bbox.height);
    var perPixel = Math.max((maxX - minX) / w, (maxZ - minZ) / h) * 1.1 || 1 / Math.min(w, h);
    var cx = (minX + maxX) / 2, cz = (minZ + maxZ) / 2;
    return {
      x: { min: cx - perPixel * w / 2, max: cx + perPixel * w / 2 },
      z: { min: cz - perPixel * h / 2, max: cz + perPixel * h / 2 }
    };
  }

  // The root seen from above: x to the right, z toward the bottom, equal scale; start and end
  // marked. The points are not in x order, so the path is drawn as a polyline of its own.
  function pathChart(container, path, units) {
    var fig = figure(container, 'Root path seen from above (x, z): start \u25cf, end \u25a0', true);
    function drawPath(u, seriesIdx) {
      var xs = u.data[seriesIdx][0], zs = u.data[seriesIdx][1];
      var ctx = u.ctx;
      ctx.save();
      clipToPlot(u, ctx);
      ctx.strokeStyle = COLORS.path;
      ctx.lineWidth = 1.5 * uPlot.pxRatio;
      ctx.beginPath();
      var first = -1, last = -1;
      for (var i = 0; i < xs.length; i++) {
        if (xs[i] == null || zs[i] == null) continue;
        var px = u.valToPos(xs[i], 'x', true), pz = u.valToPos(zs[i], 'z', true);
        if (first < 0) { ctx.moveTo(px, pz); first = i; } else { ctx.lineTo(px, pz); }
        last = i;
      }
      ctx.stroke();
      if (first >= 0) {
        var r = 4 * uPlot.pxRatio;
        ctx.fillStyle = COLORS.start;
        ctx.beginPath();
        ctx.arc(u.valToPos(xs[first], 'x', true), u.valToPos(zs[first], 'z', true), r, 0, 2 * Math.PI);
        ctx.fill();
        ctx.fillStyle = COLORS.end;
        ctx.fillRect(u.valToPos(xs[last], 'x', true) - r, u.valToPos(zs[last], 'z', true) - r, 2 * r, 2 * r);
      }
      ctx.restore();
      return null;
    }
    var opts = {
      mode: 2,
      scales: { x: { time: false }, z: { dir: -1, ori: 1 } },
      series: [{}, {
        label: 'root',
        stroke: COLORS.path,
        facets: [{ scale: 'x', auto: true }, { scale: 'z', auto: true }],
        paths: drawPath,
        points: { show: false }
      }],
      axes: [{ scale: 'x', label: 'x (' + units + ')' }, { scale: 'z', label: 'z (' + units + ')', size: AXIS_SIZE }],
      legend: { show: false },
      cursor: { show: false },
      hooks: {
        ready: [fitEqual],
        setSize: [fitEqual]
      }
    };
    // Setting the scales re-runs the layout, which calls the size hook again: once is enough.
    var fitting = false;
    function fitEqual(u) {
      if (fitting) return;
      fitting = true;
      var r = equalRanges(u, path.x, path.z);
      u.batch(function () {
        u.setScale('x', r.x);
        u.setScale('z', r.z);
      });
      fitting = false;
    }
    make(fig, opts, [null, [path.x, path.z]], function (w) { return Math.min(420, Math.max(260, w * 0.7)); }, true);
  }

  // How far the joint that jumps most at the wrap is from its pose at the loop's start (relative
  // to the COG), over the loop window played twice, before and after blending; the join (where
  // the second play starts) is the seam a viewer would see.
  function seamChart(container, seam, units) {
    var fig = figure(container, 'Loop seam of ' + (seam.channel || 'the loop') +
      ' (distance from its pose at the loop start): before (orange) and after (blue) blending, ' +
      'join dashed', true);
    function frameAt(v) {
      var xs = seam.x, lo = 0, hi = xs.length - 1;
      while (lo < hi) {
        var mid = (lo + hi) >> 1;
        if (xs[mid] < v) lo = mid + 1; else hi = mid;
      }
      return seam.frame[lo];
    }
    var opts = {
      scales: { x: { time: false } },
      series: [
        { label: 'frame', value: function (u, v) { return v == null ? '' : String(frameAt(v)); } },
        { label: 'before', stroke: COLORS.before, width: 1.5 },
        { label: 'after', stroke: COLORS.after, width: 1.5 }
      ],
      axes: [
        { label: 'frame (window played twice)', values: function (u, splits) {
          return splits.map(function (v) { return Number.isInteger(v) ? String(frameAt(v)) : ''; });
        } },
        { label: 'distance (' + units + ')', size: AXIS_SIZE }
      ],
      hooks: {
        draw: [function (u) {
          var ctx = u.ctx, b = u.bbox;
          var x = u.valToPos(seam.joinAt, 'x', true);
          ctx.save();
          clipToPlot(u, ctx);
          ctx.strokeStyle = COLORS.join;
          ctx.setLineDash([5, 4]);
          ctx.beginPath();
          ctx.moveTo(x, b.top);
          ctx.lineTo(x, b.top + b.height);
          ctx.stroke();
          ctx.restore();
        }]
      }
    };
    return make(fig, opts, [seam.x, seam.before, seam.after], function (w) { return Math.min(420, Math.max(260, w * 0.7)); }, true);
  }

  // Puts the frame cursor of `chart` at x value `x` (nothing when x is off its scale).
  function moveCursor(chart, x) {
    var left = chart.valToPos(x, 'x');
    if (!(left >= 0 && left <= chart.bbox.width / uPlot.pxRatio)) return;
    chart.setCursor({ left: left, top: 1 });
  }

  function drawTake(container, take) {
    var plots = take.plots || {};
    var units = take.unitsShort;
    var frameCharts = [], seam = null;
    // A view that cannot be made says so and leaves the charts to be drawn.
    if (take.view && window.KnrView) {
      try {
        var view = window.KnrView.create(container, take, function (frame, loopStart) {
          frameCharts.forEach(function (c) { moveCursor(c, frame); });
          // The seam chart counts frames from the loop's start, its first play at x = frame.
          if (seam && loopStart != null) moveCursor(seam, frame - loopStart);
        });
        if (view) views++;
      } catch (e) {
        var p = document.createElement('p');
        p.className = 'plot-error';
        p.textContent = 'The 3D view of this take could not be made: ' + e.message;
        container.appendChild(p);
        console.error('3D view of take ' + take.name + ':', e);
      }
    }
    if (plots.contacts) {
      plots.contacts.feet.forEach(function (foot) {
        frameCharts.push(contactChart(container, plots.contacts, foot, units));
      });
    }
    if (plots.path) pathChart(container, plots.path, units);
    if (plots.seam) seam = seamChart(container, plots.seam, units);
  }

  function drawOne(container) {
    var take = data.takes[Number(container.getAttribute('data-take'))];
    container.style.minHeight = '';
    container.setAttribute('data-drawn', 'yes');
    try {
      drawTake(container, take);
    } catch (e) {
      var p = document.createElement('p');
      p.className = 'plot-error';
      p.textContent = 'The plots of this take could not be drawn: ' + e.message;
      container.appendChild(p);
      console.error('plots of take ' + (take && take.name) + ':', e);
    }
  }

  // Records the moment the charts drawn so far are on screen (the next frame after drawing).
  function markDrawn() {
    requestAnimationFrame(function () {
      setTimeout(function () {
        window.reportDrawn = { charts: charts.length, views: views, ms: performance.now() };
        document.documentElement.setAttribute('data-drawn', 'yes');
      }, 0);
    });
  }

  // The takes on the first screen now, the rest in idle time, everything before a print.
  function drawAll() {
    var pending = Array.prototype.slice.call(document.querySelectorAll('.plots[data-take]'));
    pending.forEach(function (c) {
      c.style.minHeight = estimatedHeight(data.takes[Number(c.getAttribute('data-take'))]) + 'px';
    });
    var screen = window.innerHeight || 800;
    // Reading every position after all the writes above costs one layout.
    var tops = pending.map(function (c) { return c.getBoundingClientRect().top; });
    pending = pending.filter(function (c, i) {
      if (tops[i] >= screen) return true;
      drawOne(c);
      return false;
    });
    markDrawn();
    function finished() {
      if (pending.length === 0) document.documentElement.setAttribute('data-drawn-all', 'yes');
    }
    finished();
    var idle = window.requestIdleCallback || function (f) {
      return setTimeout(function () { f({ timeRemaining: function () { return 8; } }); }, 1);
    };
    function drawSome(deadline) {
      var made = false;
      while (pending.length && (!made || deadline.timeRemaining() > 4)) {
        drawOne(pending.shift());
        made = true;
      }
      if (made) markDrawn();
      finished();
      if (pending.length) idle(drawSome, { timeout: 1000 });
    }
    if (pending.length) idle(drawSome, { timeout: 1000 });
    window.addEventListener('beforeprint', function () {
      while (pending.length) drawOne(pending.shift());
      finished();
    });
  }

  // Room kept for a take's charts before they are made, so the page does not jump as they come
  // and the sections below do not all count as near the screen.
  function estimatedHeight(take) {
    var plots = (take && take.plots) || {};
    var feet = plots.contacts ? plots.contacts.feet.length : 0;
    var view = take && take.view ? Math.round(plotsWidth * 9 / 16) + 90 : 0;
    return view + feet * (CONTACT_HEIGHT + 100) + (plots.path || plots.seam ? 480 : 0);
  }

  var resizeTimer = 0;
  window.addEventListener('resize', function () {
    clearTimeout(resizeTimer);
    resizeTimer = setTimeout(function () {
      measure();
      charts.forEach(function (c) {
        var w = chartWidth(c.half);
        c.chart.setSize({ width: w, height: c.height(w) });
      });
    }, 150);
  });

  measure();
  drawAll();
})();
