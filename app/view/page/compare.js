// Comparing and going back: the A/B wipe against a snapshot, undo and redo,
// the kernel enlarged, and playback of a sequence.

// A/B is the wipe with the snapshot on its left and the live output on its
// right; without a snapshot, the first A/B keeps one.
mode('showAB','ab');const showAB=$('showAB').onclick;
function abNote(){const s=tool.snapshot;$('snapNote').hidden=which!='ab'||!s;
  $('snapNote').textContent=s?'A: snapshot of frame '+s.frame+' · B: live':''}
$('showAB').onclick=async()=>{if(!tool.snapshot)await post('/api/snapshot',{});if(tool.snapshot)showAB();abNote()};
for(const b of ['showIn','showOut','showWipe'])$(b).addEventListener('click',abNote);
$('snap').onclick=()=>post('/api/snapshot',{});

// Undo and redo keep to the server's history, so a script's changes are undone too.
const undoRedo=d=>(d>0?tool.redo:tool.undo)&&post(d>0?'/api/redo':'/api/undo',{});
$('undo').onclick=()=>undoRedo(-1);$('redo').onclick=()=>undoRedo(1);
// Ctrl-Z, Ctrl-Shift-Z and Ctrl-Y; in a text or number field they undo its typing.
document.addEventListener('keydown',e=>{const k=e.key.toLowerCase();
  if(!(e.ctrlKey||e.metaKey)||e.altKey||(k!='z'&&k!='y'))return;
  if(e.target.matches('textarea,input:not([type=range]):not([type=checkbox])'))return;
  e.preventDefault();undoRedo(k=='y'||e.shiftKey?1:-1)});
document.addEventListener('tool',()=>{$('undo').disabled=!tool.undo;$('redo').disabled=!tool.redo;abNote()});

// The kernel drawing enlarged by a whole factor, each of its pixels a square,
// with lines between them once they are large enough to see.
let kScale=0;
function drawKernel(){const k=$('kernel'),c=$('kcanvas'),w=k.naturalWidth,h=k.naturalHeight;if(!w||$('kzoom').hidden)return;
  kScale=kScale||Math.max(1,Math.floor(Math.min(innerWidth*.9/w,innerHeight*.8/h)));const s=kScale,g=c.getContext('2d');
  c.width=w*s;c.height=h*s;g.imageSmoothingEnabled=false;g.drawImage(k,0,0,w*s,h*s);
  if(s>=4){g.strokeStyle='#555';g.beginPath();
    for(let x=0;x<=w;x++){const at=Math.min(x*s,w*s-1)+.5;g.moveTo(at,0);g.lineTo(at,h*s)}
    for(let y=0;y<=h;y++){const at=Math.min(y*s,h*s-1)+.5;g.moveTo(0,at);g.lineTo(w*s,at)}g.stroke()}
  $('kzoomNote').textContent=w+' × '+h+' pixels, ×'+s+' (wheel to zoom; click or Esc to close)'}
$('kernel').onclick=()=>{kScale=0;$('kzoom').hidden=false;drawKernel()};
$('kernel').addEventListener('load',drawKernel);
$('kzoom').onclick=()=>$('kzoom').hidden=true;
$('kzoom').addEventListener('wheel',e=>{e.preventDefault();kScale=Math.min(Math.max(kScale+(e.deltaY<0?1:-1),1),64);drawKernel()},{passive:false});
document.addEventListener('keydown',e=>{if(e.key=='Escape')$('kzoom').hidden=true});

// Playback: the next frame once the last is shown, at most 24 a second, round
// and round until stopped or a render fails. Frames the server keeps show
// without rendering; the readout says what it keeps against its budget. The
// kernel, drawn afresh at every frame, waits until playback stops.
// A Stop and Play quicker than a frame leaves one loop: the newest run's.
let playing=false,runs=0;
const kFrameMs=1000/24,pause=ms=>new Promise(r=>setTimeout(r,ms));
async function settled(){while(inflight)await pause(5)}
async function play(){playing=!playing;$('play').textContent=playing?'■ Stop':'▶ Play';const run=++runs;
  while(playing&&run==runs){const t0=performance.now(),fs=tool.frames;err();
    await post('/api/frame',{frame:fs[(fs.indexOf(tool.frame)+1)%fs.length]});await settled();
    if($('err').textContent){playing=false;$('play').textContent='▶ Play'}
    await pause(kFrameMs-(performance.now()-t0))}
  if(run==runs)refresh()}
$('play').onclick=play;
let asking=false;const mb=b=>(b/1048576).toFixed(b<1048576?2:0);
$('view').addEventListener('load',async()=>{if(asking||!tool?.sequence)return;asking=true;
  try{const c=await (await api('/api/cache')).json();
    $('cache').textContent='cache: '+c.frames+' frames, '+mb(c.bytes)+' of '+mb(c.budget)+' MB'}catch(e){}asking=false});
