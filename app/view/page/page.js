const $=id=>document.getElementById(id),H={'X-Lumivane-Token':location.hash.slice(1)};
// Pictures come as JPEG, quick to make and to move; `?png` in the address asks
// for PNG, exact to the 8-bit code.
const shown=location.search.includes('png')?'png':'jpeg';
let tool,page,which='output',inflight=false,again=false,proxy=1,wantFull=false,idle=0,inKey='',focus=null;
// controlHeld: a control is being dragged (drag.js), so the output's pictures come alone.
let refreshing=null,controlHeld=false;
async function api(path,body){
  const r=await fetch(path,body===undefined?{headers:H}:{method:'POST',headers:{...H,'Content-Type':'application/json'},body:JSON.stringify(body)});
  if(r.status==409)throw 0;if(!r.ok)throw new Error((await r.json()).error);return r;}
const err=m=>$('err').textContent=m||'';
async function post(path,body,full){try{show(await (await api(path,body)).json(),full);err()}catch(e){err(e.message);show(await (await api('/api/tool')).json())}}
const set=(id,value,full)=>post('/api/set',{id,value},full);
function el(tag,props,...kids){const e=Object.assign(document.createElement(tag),props);e.append(...kids);return e}
// What the server would refuse, said at the field before anything is sent.
function refusal(c,text){const v=Number(text);
  if(text.trim()==''||!isFinite(v))return '"'+text+'" is not a number';
  if(c.min!==undefined&&v<c.min)return v+' is less than the lowest value '+c.min;
  if(c.max!==undefined&&v>c.max)return v+' is more than the highest value '+c.max;
  if(c.integer&&!Number.isInteger(v))return v+' is not a whole number';return ''}
function numberField(c){const why=el('span',{className:'fieldErr'});
  const f=el('input',{type:'number',step:c.integer?1:'any',value:c.value,onchange:e=>{const r=refusal(c,e.target.value);
    why.textContent=r;f.classList.toggle('bad',!!r);if(!r)set(c.id,e.target.value)}});return [f,why]}
function control(c){
  const row=el('div',{className:'row',hidden:!c.visible});row.dataset.id=c.id;row.toggleAttribute('data-focus',c.id==focus);
  // ◆ a key at this frame, ◇ animated between keys
  row.append(el('label',{textContent:c.label},el('span',{className:'key',textContent:c.animated?(keyHere(c)?'◆':'◇'):''})));
  // the control last clicked or changed
  if(keyable(c))for(const e of ['pointerdown','change'])row.addEventListener(e,()=>focusOn(c.id));
  if(c.readOnly)row.append(el('span',{textContent:c.value}));
  else if(c.kind=='multi-button')c.entries.forEach((n,i)=>row.append(el('button',{textContent:n,className:c.value==i?'on':'',onclick:()=>set(c.id,i)})));
  else if(c.kind=='checkbox')row.append(el('input',{type:'checkbox',checked:c.value!=0,onchange:e=>set(c.id,e.target.checked)}));
  else if(c.kind=='slider'){const lo=c.min??0,hi=Math.max(c.sliderTop??lo+10,c.value),end=e=>dragEnd(c,+e.target.value);
    // A drag back to where it began ends without a change event.
    row.append(el('input',{type:'range',min:lo,max:hi,step:c.integer?1:(hi-lo)/1000,value:c.value,
      oninput:e=>dragTo(c,+e.target.value),onchange:end,onpointerup:end}),...numberField(c));}
  else row.append(el('input',{value:c.value??'',onchange:e=>set(c.id,e.target.value)}));
  return row;}
// Keys: the buttons act on the focused control at the current frame; the marks
// on the frame slider are its keys, or every animated control's when it has none.
const keyable=c=>typeof c.value=='number'&&!c.readOnly,keyHere=c=>c.keys.some(k=>k[0]==tool.frame);
const controls=()=>tool.pages.flatMap(p=>p.controls),focused=()=>controls().find(c=>c.id==focus);
function focusOn(id){if(focus==id)return;focus=id;
  for(const r of document.querySelectorAll('#controls .row'))r.toggleAttribute('data-focus',r.dataset.id==id);keyBar()}
function keyFrames(){const c=focused(),from=c&&c.animated?[c]:controls().filter(c=>c.animated);
  return [...new Set(from.flatMap(c=>c.keys.map(k=>k[0])))].sort((a,b)=>a-b)}
function keyBar(){const c=focused(),lo=Math.min(...tool.frames),hi=Math.max(...tool.frames);$('keys').hidden=!tool.sequence;
  $('focusName').textContent=c?c.label:'(pick a control)';
  $('animate').disabled=!c||c.animated;$('setKey').disabled=!c||!c.animated;
  $('deleteKey').disabled=!c||!keyHere(c);$('unanimate').disabled=!c||!c.animated;
  $('marks').replaceChildren(...keyFrames().filter(f=>f>=lo&&f<=hi).map(f=>
    el('i',{title:'key at '+f,style:'left:'+(hi>lo?(f-lo)/(hi-lo)*100:0)+'%'})))}
const goTo=f=>f!==undefined&&f!=tool.frame&&post('/api/frame',{frame:f});
const stepFrame=d=>goTo(tool.frames[tool.frames.indexOf(tool.frame)+d]);
// The next (d=1) or previous key, at the nearest frame viewed on its far side.
function stepKey(d){const f=tool.frame,fs=[...tool.frames].sort((a,b)=>a-b),ks=keyFrames();
  const k=d>0?ks.find(k=>k>f):ks.filter(k=>k<f).at(-1);if(k===undefined)return;
  goTo(d>0?fs.find(x=>x>f&&x>=k):fs.filter(x=>x<f&&x<=k).at(-1))}
const verb=(path,action)=>()=>focus&&post(path,{id:focus,action});
$('animate').onclick=verb('/api/animate');$('setKey').onclick=verb('/api/key','set');
$('deleteKey').onclick=verb('/api/key','delete');$('unanimate').onclick=verb('/api/unanimate');
$('prevKey').onclick=()=>stepKey(-1);$('nextKey').onclick=()=>stepKey(1);
// Left/right: the previous/next frame; with shift, key. Not while typing, nor
// on a control's own slider.
document.addEventListener('keydown',e=>{const t=e.target;
  if(!tool?.sequence||!['ArrowLeft','ArrowRight'].includes(e.key)||e.ctrlKey||e.altKey||e.metaKey)return;
  if(t.matches('select,textarea,input:not([type=range]):not([type=checkbox])')||(t.type=='range'&&t.id!='frame'))return;
  e.preventDefault();const d=e.key=='ArrowRight'?1:-1;e.shiftKey?stepKey(d):stepFrame(d)});
// full: ask for the full resolution at once, without a proxy first.
function show(t,full){
  const first=!tool;tool=t;$('name').textContent=t.name;page=page??t.pages[0].name;
  if(first){proxy=t.proxy||1;$('proxy').value=proxy}
  $('tabs').replaceChildren(...t.pages.map(p=>el('button',{textContent:p.name,className:p.name==page?'on':'',onclick:()=>{page=p.name;show(tool)}})));
  $('controls').replaceChildren(...t.pages.find(p=>p.name==page).controls.map(control));
  $('frames').hidden=!t.sequence;const f=$('frame');f.min=t.frames[0];f.max=t.frames.at(-1);f.value=t.frame;$('frameNo').textContent=t.frame;
  keyBar();document.dispatchEvent(new Event('tool'));
  wantFull=!!full;refresh();}
async function picture(img,q){const r=await api('/api/image?'+q);const url=URL.createObjectURL(await r.blob());
  if(img.src)URL.revokeObjectURL(img.src);img.src=url;await img.decode().catch(()=>{});return r;}

// The viewer: the pictures at full-resolution size (a proxy is stretched by its
// factor), moved by a translation and a scale; Fit and 1:1 set them afresh.
let tx=0,ty=0,sc=1,fit=true,wipeAt=.5,imgW=0,imgH=0;
function place(){const st=$('stage'),v=$('view'),k=+(v.dataset.proxy||1);
  imgW=v.naturalWidth*k;imgH=v.naturalHeight*k;
  for(const i of [v,$('inview')]){i.style.width=imgW+'px';i.style.height=imgH+'px'}
  if(fit&&imgW){sc=Math.min(st.clientWidth/imgW,st.clientHeight/imgH);tx=(st.clientWidth-imgW*sc)/2;ty=(st.clientHeight-imgH*sc)/2}
  $('layer').style.transform='translate('+tx+'px,'+ty+'px) scale('+sc+')';
  const w=$('wipe'),on=which=='wipe'||which=='ab';w.hidden=!on;$('inview').hidden=which=='output';
  $('view').style.visibility=which=='input'?'hidden':'visible';
  if(on){const x=Math.min(Math.max(wipeAt,0),1)*st.clientWidth;w.style.left=x+'px';
    const cut=Math.min(Math.max((x-tx)/(sc*imgW),0),1)*100;$('inview').style.clipPath='inset(0 '+(100-cut)+'% 0 0)'}
  else $('inview').style.clipPath='';}
function zoomTo(s,cx,cy){tx=cx-(cx-tx)*s/sc;ty=cy-(cy-ty)*s/sc;sc=s;setFit(false)}
function setFit(on){fit=on;$('fit').classList.toggle('on',on);$('one').classList.toggle('on',!on&&sc==1);place()}
$('stage').addEventListener('wheel',e=>{e.preventDefault();const b=$('stage').getBoundingClientRect();
  zoomTo(Math.min(Math.max(sc*Math.pow(1.0015,-e.deltaY),1/64),64),e.clientX-b.left,e.clientY-b.top)},{passive:false});
$('stage').addEventListener('pointerdown',e=>{const st=$('stage'),onWipe=e.target.id=='wipe',b=st.getBoundingClientRect();
  let x0=e.clientX,y0=e.clientY;st.setPointerCapture(e.pointerId);st.classList.add('drag');
  st.onpointermove=m=>{if(onWipe)wipeAt=(m.clientX-b.left)/st.clientWidth;else{tx+=m.clientX-x0;ty+=m.clientY-y0;fit=false;$('fit').classList.remove('on')}
    x0=m.clientX;y0=m.clientY;place()};
  st.onpointerup=()=>{st.onpointermove=null;st.classList.remove('drag')}});
window.addEventListener('resize',place);
$('fit').onclick=()=>setFit(true);
$('one').onclick=()=>{const st=$('stage');zoomTo(1,st.clientWidth/2,st.clientHeight/2)};

// One request at a time; changes meanwhile make one more. A picture older than
// the newest settings is dropped, and one the server abandoned for a newer
// change (409) is not waited for: that change's answer asks again. A proxy
// picture is followed by the full resolution once the settings have rested for
// a second. The promise is the newest settings' picture shown.
function refresh(){
  clearTimeout(idle);
  if(inflight){again=true;return refreshing}inflight=true;return refreshing=draw()}
async function draw(){$('busy').classList.add('on');
  const exp=+$('exp').value||0;let shownProxy=0;
  try{const want=tool.version,p=wantFull?1:proxy,t0=performance.now();
    const r=await fetch('/api/image?which=output&format='+shown+'&proxy='+p+'&exposure='+exp+probeQuery(),{headers:H});
    if(r.status==409)throw 0;if(!r.ok)throw new Error((await r.json()).error);
    const blob=await r.blob(),t1=performance.now();
    if(+r.headers.get('X-Lumivane-Version')==tool.version){const img=$('view'),u=img.src;img.src=URL.createObjectURL(blob);
      if(u)URL.revokeObjectURL(u);await img.decode().catch(()=>{});img.dataset.proxy=p;shownProxy=p;place();
      img.dataset.fetchMs=(t1-t0).toFixed(1);img.dataset.drawMs=(performance.now()-t1).toFixed(1);img.dataset.version=want;
      $('mark').hidden=p==1;$('mark').textContent='proxy 1/'+p;
      const ms=+r.headers.get('X-Lumivane-Render-Ms');if(ms)$('ms').textContent=ms.toFixed(0)+' ms'+(p>1?' (proxy)':'');err()}
    // Left of the wipe: the input, or in A/B the snapshot.
    const left=which=='ab'?'snapshot':'input',key=[left,tool.snapshot?.version,tool.frame,exp,p,probeQuery()].join('/');
    if(which!='output'&&inKey!=key){inKey=key;
      await picture($('inview'),'which='+left+'&format='+shown+'&proxy='+p+'&exposure='+exp+probeQuery())}
    $('console').textContent=(await (await api('/api/console')).json()).lines.join('\n');
    if(!again&&!controlHeld&&!playing)await picture($('kernel'),'which=kernel&format=png');
  }catch(e){if(e)err(e.message)}
  inflight=false;$('busy').classList.remove('on');
  if(again){again=false;return refresh()}else if(shownProxy>1)idle=setTimeout(()=>{wantFull=true;refresh()},1000)}
function mode(id,w){$(id).onclick=()=>{for(const b of ['showIn','showOut','showWipe','showAB'])$(b).classList.toggle('on',b==id);which=w;place();refresh()}}
mode('showIn','input');mode('showOut','output');mode('showWipe','wipe');
$('proxy').onchange=e=>{proxy=+e.target.value;wantFull=false;refresh()};
$('full').onclick=()=>{wantFull=true;refresh()};
$('exp').onchange=refresh;$('frame').onchange=e=>post('/api/frame',{frame:+e.target.value});
$('save').onclick=async()=>{try{$('saved').textContent='saved '+(await (await api('/api/flow',{})).json()).saved}catch(e){err(e.message)}};
api('/api/tool').then(r=>r.json()).then(show).catch(e=>err(e.message));
