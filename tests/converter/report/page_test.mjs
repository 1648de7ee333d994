// The run report in headless Chromium: fixture takes (a walk, a 90,000-frame take, a failed take
// with a hostile name, a file that is not json) -> report.html -> the page must load without a
// console error or a network request, draw every chart (canvas pixels in the series colours)
// and every take's 3D view (pixels in the bone colour, a picture that changes as it plays, a
// slider that moves the charts' frame cursor) without a scroll, run no injected markup, and a
// one-shot `chromium --headless --screenshot` of it must show the first take's view and charts.
// Prints how long the page took to draw; timing is not asserted.
//
// usage: node page_test.mjs WRITER WEB_DIR WORK_DIR
//   WRITER   the knrconvert_report_write executable (writes DIR/report.html)
//   WEB_DIR  converter/report/web, whose node_modules holds playwright-core
import { execFileSync } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { pathToFileURL } from 'node:url';

const CHROMIUM = '/usr/bin/chromium';
const [writer, webDir, workDir] = process.argv.slice(2).map((a) => a && resolve(a));
const failures = [];

function fail(message) {
  console.error(`report_page: ${message}`);
  process.exit(1);
}

if (!writer || !webDir || !workDir) fail('usage: node page_test.mjs WRITER WEB_DIR WORK_DIR');
if (!existsSync(CHROMIUM)) {
  fail(`${CHROMIUM} is missing; install it with ${join(webDir, 'install-browser.sh')}`);
}
let chromium;
try {
  ({ chromium } = createRequire(join(webDir, 'package.json'))('playwright-core'));
} catch (e) {
  fail(`playwright-core is not installed in ${webDir}/node_modules; run ` +
       `${join(webDir, 'install-browser.sh')} (${e.message.split('\n')[0]})`);
}

// ---- fixture takes -------------------------------------------------------------------------

const HOSTILE = '<img src=x onerror="alert(1)">&amp; \'</script>';

// A stick figure of 13 joints walking in place along x at `speed` units a frame: hips, spine,
// head, and per side a thigh, knee, ankle and toe, and a shoulder; its view data as the
// converter writes it (base64 of int16 positions times `unit`).
const PARENTS = [-1, 0, 1, 0, 3, 4, 5, 0, 7, 8, 9, 1, 1];
function figurePose(f, speed) {
  const x = f * speed, s = Math.sin((2 * Math.PI * f) / 120);
  const leg = (side) => {
    const swing = side * s * 20;
    return [[x + side * 0, 90, side * 10], [x + swing * 0.5, 50, side * 10],
            [x + swing, Math.max(0, side * s) * 12 + 8, side * 10], [x + swing + 15, 2, side * 10]];
  };
  return [[x, 95, 0], [x, 130, 0], [x, 170, 0], [x, 92, 10], ...leg(1).slice(1), [x, 92, -10],
          ...leg(-1).slice(1), [x, 145, 20], [x, 145, -20]];
}
function viewClip(first, step, count, speed) {
  const values = [];
  for (let i = 0; i < count; i++) for (const p of figurePose(first + i * step, speed)) values.push(...p);
  const unit = Math.max(...values.map(Math.abs)) / 32767;
  const ints = Int16Array.from(values, (v) => Math.round(v / unit));
  return { first, step, count, unit, made: true,
           positions: Buffer.from(ints.buffer).toString('base64') };
}
function viewOf(count) {
  const step = Math.ceil(count / 1500);
  return { frameTime: 1 / 120, parents: PARENTS,
           feet: [{ name: 'LeftFoot', joint: 6 }, { name: 'RightFoot', joint: 10 }],
           skill: viewClip(0, step, Math.floor((count - 1) / step) + 1, 0.5),
           loop: viewClip(120, 1, 121, 0.5) };
}

// A walk of `count` frames: steps every 60 frames per foot, heel lifting between contacts, the
// root drifting along a gentle curve. With `thin`, series are not thinned here: the report writer
// must do it.
function walkTake(name, count) {
  const frames = [], heel = { LeftFoot: [], RightFoot: [] }, x = [], z = [];
  const speed = { LeftFoot: [], RightFoot: [] };
  const contacts = { LeftFoot: [], RightFoot: [] };
  const limit = 1.7;
  for (let f = 0; f < count; f++) {
    frames.push(f);
    for (const [foot, phase] of [['LeftFoot', 0], ['RightFoot', Math.PI]]) {
      const h = Math.max(0, Math.sin((2 * Math.PI * f) / 120 + phase)) * 12 + 0.4;
      heel[foot].push(Math.round(h * 1000) / 1000);
      speed[foot].push(Math.round(Math.abs(Math.cos((2 * Math.PI * f) / 120 + phase)) * 900));
      const list = contacts[foot];
      const inContact = h < limit;
      const last = list[list.length - 1];
      if (inContact && last && last[1] === f - 1) last[1] = f;
      else if (inContact) list.push([f, f]);
    }
    const a = f / 4000;
    x.push(Math.round(Math.sin(a) * 3000 * 100) / 100);
    z.push(Math.round((1 - Math.cos(a)) * 3000 * 100) / 100);
  }
  const window = [];
  const before = [], after = [];
  for (let pass = 0; pass < 2; pass++) {
    for (let f = 120; f <= 240; f++) {
      window.push(f);
      const t = (f - 120) / 120;
      before.push(Math.sin(2 * Math.PI * t) * 10 + t * 6);
      after.push(Math.sin(2 * Math.PI * t) * 10 + 3);
    }
  }
  return {
    take: name, source: `/takes/${name}.bvh`, status: 'ok', frames: count, frameTime: 1 / 120,
    joints: 13, cog: 'Hips', conditioning: { changed: false, notes: [], units: 'centimetres' },
    feet: [{ joint: 'LeftFoot', found: 'name' }, { joint: 'RightFoot', found: 'shape' }],
    skill: 'Locomotion', threshold: 0.2, contacts, distance: 512.3, headingChange: 87.5,
    loop: { start: 120, end: 240, foot: 'LeftFoot', seamBefore: 6.0, seamAfter: 0.2 },
    warnings: [],
    seconds: { import: 0.4, generate: 0.2, skill: 0.3, loop: 0.05, save: 0.3, total: 1.25 },
    plots: {
      frames, heel, speed, heightLimit: { LeftFoot: limit, RightFoot: limit }, path: { x, z },
      seam: { channel: 'Hips.kine.local.posx', frames: window, before, after },
    },
    view: viewOf(count),
  };
}

rmSync(workDir, { recursive: true, force: true });
const takes = join(workDir, 'takes');
mkdirSync(takes, { recursive: true });
writeFileSync(join(takes, 'walk01.json'), JSON.stringify(walkTake('walk01', 1200)));
writeFileSync(join(takes, 'long90k.json'), JSON.stringify(walkTake('long90k', 90000)));
writeFileSync(join(takes, 'hostile.json'), JSON.stringify({
  take: HOSTILE, status: 'failed', reason: `/takes/x.bvh line 3: ${HOSTILE}`,
}));
writeFileSync(join(takes, 'truncated.json'), '{"take": "truncated", "frames": 12');
execFileSync(writer, [takes], { stdio: 'inherit' });
const EXPECTED_CHARTS = 8;  // per walk: two feet, the path, the seam
const EXPECTED_VIEWS = 2;
const report = join(takes, 'report.html');

// ---- a one-shot screenshot, as a person would take one ----------------------------------------

const shot = join(workDir, 'oneshot.png');
const WEBGL = ['--use-angle=swiftshader', '--enable-unsafe-swiftshader'];
const shotProfile = mkdtempSync(join(tmpdir(), 'knr-report-shot-'));
try {
  execFileSync(CHROMIUM, ['--headless', '--no-sandbox', '--disable-gpu', ...WEBGL, '--hide-scrollbars',
    `--user-data-dir=${shotProfile}`, '--window-size=1280,2400', `--screenshot=${shot}`,
    pathToFileURL(report).href], { stdio: 'ignore', timeout: 120000 });
} finally {
  rmSync(shotProfile, { recursive: true, force: true });
}

// ---- the page in Chromium ------------------------------------------------------------------

const profile = mkdtempSync(join(tmpdir(), 'knr-report-chromium-'));
const context = await chromium.launchPersistentContext(profile, {
  executablePath: CHROMIUM,
  headless: true,
  args: ['--headless', '--no-sandbox', '--disable-gpu', ...WEBGL, '--disable-quic', '--no-first-run',
         '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  viewport: { width: 1280, height: 900 },
});
try {
  const page = await context.newPage();
  page.on('console', (m) => { if (m.type() === 'error') failures.push(`console error: ${m.text()}`); });
  page.on('pageerror', (e) => failures.push(`page error: ${e.message}`));
  page.on('dialog', (d) => { failures.push(`a dialog opened: ${d.message()}`); d.dismiss(); });
  page.on('request', (r) => {
    if (!r.url().startsWith('file:')) failures.push(`the page fetched ${r.url()}`);
  });

  // Every take is drawn without a scroll: the first screen at once, the rest when idle.
  const started = Date.now();
  await page.goto(pathToFileURL(report).href);
  await page.waitForSelector('html[data-drawn="yes"]', { timeout: 120000 });
  const first = await page.evaluate(() => window.reportDrawn);
  await page.waitForSelector('html[data-drawn-all="yes"]', { timeout: 120000 });
  await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => setTimeout(done, 0))));
  const wall = Date.now() - started;
  const drawn = await page.evaluate(() => window.reportDrawn);
  console.log(`report_page: first screen drawn ${first.ms.toFixed(0)} ms after navigation start ` +
              `(${first.charts} charts); all ${drawn.charts} charts on screen ${wall} ms after goto`);
  if (drawn.charts !== EXPECTED_CHARTS) failures.push(`${drawn.charts} charts, expected ${EXPECTED_CHARTS}`);
  if (drawn.views !== EXPECTED_VIEWS) failures.push(`${drawn.views} 3D views, expected ${EXPECTED_VIEWS}`);

  // Pixels in a series colour per chart canvas: the heel, path and "after" blue, the "before"
  // orange. Axes and grid are grey, so a chart whose series did not draw counts (near) zero.
  const counts = await page.evaluate(() => Array.from(document.querySelectorAll('.plots .uplot canvas'),
    (canvas) => {
      const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
      let blue = 0, orange = 0;
      for (let i = 0; i < data.length; i += 4) {
        const [r, g, b, a] = [data[i], data[i + 1], data[i + 2], data[i + 3]];
        if (a < 128) continue;
        if (b > 120 && b - r > 60 && b - g > 30) blue++;
        if (r > 180 && g > 90 && g < 170 && b < 80) orange++;
      }
      return { blue, orange, caption: canvas.closest('figure').querySelector('figcaption').textContent };
    }));
  for (const c of counts) {
    if (c.blue < 100) failures.push(`chart "${c.caption}" looks blank (${c.blue} series pixels)`);
    if (c.caption.startsWith('Loop seam') && c.orange < 100) {
      failures.push(`chart "${c.caption}" has no "before" curve (${c.orange} pixels)`);
    }
  }
  console.log(`report_page: series pixels per chart: ${counts.map((c) => c.blue + c.orange).join(', ')}`);

  // Each view shows the figure in the bone colour, and plays: a picture later differs. Views
  // play only on screen, so each is scrolled to in turn.
  const BONE = (r, g, b) => b > 150 && r < 90 && g > 70 && g < 140;
  const viewPixels = async (i) => page.evaluate(([i, bone]) => {
    const canvas = document.querySelectorAll('.view3d-canvas')[i];
    canvas.scrollIntoView();
    const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
    const isBone = new Function('r', 'g', 'b', `return ${bone};`);
    let count = 0, hash = 0;
    for (let p = 0; p < data.length; p += 4) {
      if (isBone(data[p], data[p + 1], data[p + 2])) count++;
      hash = (hash * 31 + data[p] + data[p + 1] * 7 + data[p + 2] * 13) | 0;
    }
    return { count, hash };
  }, [i, BONE.toString().replace(/^.*=> /, '')]);
  for (let i = 0; i < EXPECTED_VIEWS; i++) {
    const a = await viewPixels(i);
    await page.waitForTimeout(400);
    const b = await viewPixels(i);
    if (a.count < 50) failures.push(`3D view ${i} shows no figure (${a.count} bone pixels)`);
    if (a.hash === b.hash) failures.push(`3D view ${i} does not move`);
  }

  // The slider of the first view (the 90,000-frame take, its whole skill one sample every 60
  // frames) moves its take's chart cursor to the frame it shows.
  const cursor = await page.evaluate(async () => {
    const fig = document.querySelector('.view3d');
    const plots = fig.closest('.plots');
    const line = plots.querySelector('.uplot .u-cursor-x');
    const slider = fig.querySelector('input.frame');
    const clip = fig.querySelector('select.clip');
    clip.value = 'skill';
    clip.dispatchEvent(new Event('change'));
    const moves = [];
    for (const value of ['10', '1000']) {
      slider.value = value;
      slider.dispatchEvent(new Event('input'));
      moves.push({ frame: fig.getAttribute('data-frame'), at: line.style.transform || line.style.left });
    }
    return { moves, legend: plots.querySelector('.uplot .u-legend').textContent };
  });
  const [m0, m1] = cursor.moves;
  if (m0.frame !== '600' || m1.frame !== '60000' || !m0.at || m0.at === m1.at) {
    failures.push(`the slider does not move the chart cursor: ${JSON.stringify(cursor.moves)}`);
  }
  if (!cursor.legend.includes('speed (cm/s)')) failures.push(`no foot speed in the heel chart: ${cursor.legend}`);

  // The one-shot screenshot shows the first take's view (bone pixels) and heel charts (blue).
  const { view: viewBox, chart: chartBox } = await page.evaluate(() => {
    window.scrollTo(0, 0);
    const box = (el) => { const r = el.getBoundingClientRect(); return [r.left, r.top + scrollY, r.width, r.height]; };
    return { view: box(document.querySelector('.view3d-canvas')), chart: box(document.querySelector('.plots .uplot canvas')) };
  });
  const shotPixels = await page.evaluate(async ([png, boxes]) => {
    const img = new Image();
    img.src = `data:image/png;base64,${png}`;
    await img.decode();
    const c = document.createElement('canvas');
    c.width = img.width; c.height = img.height;
    const ctx = c.getContext('2d');
    ctx.drawImage(img, 0, 0);
    return boxes.map(([x, y, w, h]) => {
      if (y + h > img.height) return -1;
      const { data } = ctx.getImageData(x, y, w, h);
      let n = 0;
      for (let p = 0; p < data.length; p += 4) if (data[p + 2] > 150 && data[p] < 90) n++;
      return n;
    });
  }, [readFileSync(shot).toString('base64'), [viewBox, chartBox]]);
  if (!(shotPixels[0] > 50 && shotPixels[1] > 100)) {
    failures.push(`the one-shot screenshot lacks the first take's view or chart ` +
                  `(blue pixels: view ${shotPixels[0]}, chart ${shotPixels[1]})`);
  }

  const rows = await page.$$eval('table.takes tbody tr', (trs) => trs.map((tr) => ({
    failed: tr.classList.contains('failed'),
    name: tr.querySelector('td.name').textContent,
  })));
  const names = rows.map((r) => r.name).join(' | ');
  if (rows.length !== 4 || !rows[0].failed || !rows[1].failed || rows[2].failed) {
    failures.push(`table rows not as expected (failures first): ${names}`);
  }
  if (!rows.some((r) => r.name === HOSTILE)) failures.push(`the hostile name is not shown as text: ${names}`);
  if (await page.$('img') !== null) failures.push('markup from a take name became an element');

  await page.evaluate(() => window.scrollTo(0, 0));
  await page.screenshot({ path: join(workDir, 'report.png'), fullPage: true });
  console.log(`report_page: screenshot in ${join(workDir, 'report.png')}`);
} finally {
  await context.close();
  rmSync(profile, { recursive: true, force: true });
}

if (failures.length) {
  for (const f of failures) console.error(`report_page: ${f}`);
  process.exit(1);
}
console.log('report_page: ok');
