// The run report in headless Chromium: fixture takes (a walk, a 90,000-frame take, a failed take
// with a hostile name, a file that is not json) -> report.html -> the page must load without a
// console error, draw every chart (canvas pixels in the series colours) and run no injected
// markup. Prints how long the page took to draw; timing is not asserted.
//
// usage: node page_test.mjs WRITER WEB_DIR WORK_DIR
//   WRITER   the knrconvert_report_write executable (writes DIR/report.html)
//   WEB_DIR  converter/report/web, whose node_modules holds playwright-core
import { execFileSync } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
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

// A walk of `count` frames: steps every 60 frames per foot, heel lifting between contacts, the
// root drifting along a gentle curve. With `thin`, series are not thinned here: the report writer
// must do it.
function walkTake(name, count) {
  const frames = [], heel = { LeftFoot: [], RightFoot: [] }, x = [], z = [];
  const contacts = { LeftFoot: [], RightFoot: [] };
  const limit = 1.7;
  for (let f = 0; f < count; f++) {
    frames.push(f);
    for (const [foot, phase] of [['LeftFoot', 0], ['RightFoot', Math.PI]]) {
      const h = Math.max(0, Math.sin((2 * Math.PI * f) / 120 + phase)) * 12 + 0.4;
      heel[foot].push(Math.round(h * 1000) / 1000);
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
    joints: 31, cog: 'Hips',
    feet: [{ joint: 'LeftFoot', found: 'name' }, { joint: 'RightFoot', found: 'shape' }],
    skill: 'Locomotion', threshold: 0.2, contacts, distance: 512.3, headingChange: 87.5,
    loop: { start: 120, end: 240, foot: 'LeftFoot', seamBefore: 6.0, seamAfter: 0.2 },
    warnings: [],
    seconds: { import: 0.4, generate: 0.2, skill: 0.3, loop: 0.05, save: 0.3, total: 1.25 },
    plots: {
      frames, heel, heightLimit: { LeftFoot: limit, RightFoot: limit }, path: { x, z },
      seam: { channel: 'Hips.kine.local.posx', frames: window, before, after },
    },
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

// ---- the page in Chromium ------------------------------------------------------------------

const profile = mkdtempSync(join(tmpdir(), 'knr-report-chromium-'));
const context = await chromium.launchPersistentContext(profile, {
  executablePath: CHROMIUM,
  headless: true,
  args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
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

  // Charts are made as their take comes near the screen: scroll to each take in turn.
  const started = Date.now();
  await page.goto(pathToFileURL(join(takes, 'report.html')).href);
  await page.waitForSelector('html[data-drawn="yes"]', { timeout: 120000 });
  const first = await page.evaluate(() => window.reportDrawn);
  const sections = await page.$$eval('.plots[data-take]', (list) => list.length);
  for (let i = 0; i < sections; i++) {
    await page.evaluate(async (i) => {
      const plots = document.querySelectorAll('.plots[data-take]')[i];
      plots.scrollIntoView();
      while (plots.getAttribute('data-drawn') !== 'yes') {
        await new Promise((done) => requestAnimationFrame(done));
      }
      await new Promise((done) => requestAnimationFrame(() => setTimeout(done, 0)));
    }, i);
  }
  const wall = Date.now() - started;
  const drawn = await page.evaluate(() => window.reportDrawn);
  console.log(`report_page: first screen drawn ${first.ms.toFixed(0)} ms after navigation start ` +
              `(${first.charts} charts); all ${drawn.charts} charts on screen ${wall} ms after goto`);
  if (drawn.charts !== EXPECTED_CHARTS) failures.push(`${drawn.charts} charts, expected ${EXPECTED_CHARTS}`);

  // Pixels in a series colour per chart canvas: the heel, path and "after" blue, the "before"
  // orange. Axes and grid are grey, so a chart whose series did not draw counts (near) zero.
  const counts = await page.evaluate(() => Array.from(document.querySelectorAll('.plots canvas'),
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
